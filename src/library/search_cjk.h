// Text in the scripts that write words without blanks between them (Chinese,
// Japanese, Korean), for the second full-text index of the library.
//
// Such a sentence is one long run of characters, so it is indexed as the
// overlapping pairs of its characters (bigrams): any run of two characters or
// more is found as the phrase of its pairs. Before that the text is folded
// with Unicode NFKC (half-width and full-width forms, combining voiced marks
// of kana, compatibility ideographs), and a blank or line break between two
// such characters is dropped: the recogniser writes "会 议 室" for "会议室", and
// wraps sentences anywhere. Each run also yields its last character alone,
// so that a one-character term is found wherever it stands. All other text
// (Latin script, digits, punctuation) yields nothing here: the first index
// holds it, as wordIndexText() leaves it: width forms folded the same way,
// and every CJK character a blank, so that "iPhone手机" and "ＡＢＣ" are the
// words "iphone" and "abc" there.
//
// The FTS5 tokenizer "klipora_cjk" does this inside SQLite; it and the SQL
// functions the index reads its text through are registered on every
// connection the library opens (Database::open).
//
// Pure functions; safe from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"

struct sqlite3;

namespace klipora::library {

inline constexpr const char* kCjkTokenizer = "klipora_cjk";

// One run of CJK characters after folding, with the byte range of the text it
// came from.
struct CjkRun {
  std::u32string characters;
  size_t start = 0;
  size_t end = 0;
};

// The folded runs of CJK characters in `text` (valid UTF-8 expected; invalid
// bytes count as other text).
std::vector<CjkRun> cjkRuns(std::string_view text);

// True when `text` holds a character that cjkRuns() keeps.
bool hasCjkText(std::string_view text);

// What the first index receives of `text`: the compatibility and width forms
// of the CJK blocks folded with NFKC as cjkRuns() folds them (full-width
// Latin and digits become ASCII), and every character that cjkRuns() keeps
// replaced by a blank. Text without such characters comes back unchanged.
std::string wordIndexText(std::string_view text);

// False only when wordIndexText(text) is `text` itself, checked without
// building it (a quick scan of the bytes for most text).
bool mayDifferForWordIndex(std::string_view text);

// `text` with each blank run between two CJK characters removed, so that a
// query typed as "会 议" is read as the text was indexed.
std::string joinCjkAcrossBlanks(std::string_view text);

// The index terms of one run: its bigrams and (for indexing) its last
// character; the query form leaves that last single character out unless
// the run has only one.
std::vector<std::string> cjkTerms(const std::u32string& run, bool forQuery);

// Registers on a connection the "klipora_cjk" FTS5 tokenizer and the SQL
// functions of the index views: klipora_words(text) is wordIndexText(),
// klipora_has_cjk(text, ...) and klipora_may_fold(text, ...) are 1 when
// hasCjkText() or mayDifferForWordIndex() holds for any of their arguments.
Status registerCjkSearch(sqlite3* db);

}  // namespace klipora::library
