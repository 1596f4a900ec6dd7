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
// holds it.
//
// The FTS5 tokenizer "klipora_cjk" does this inside SQLite; it is registered
// on every connection the library opens (Database::open).
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

// `text` with every character that cjkRuns() keeps replaced by a blank: what
// is left for the first index.
std::string withoutCjkText(std::string_view text);

// `text` with each blank run between two CJK characters removed, so that a
// query typed as "会 议" is read as the text was indexed.
std::string joinCjkAcrossBlanks(std::string_view text);

// The index terms of one run: its bigrams and (for indexing) its last
// character; the query form leaves that last single character out unless
// the run has only one.
std::vector<std::string> cjkTerms(const std::u32string& run, bool forQuery);

// Registers the "klipora_cjk" FTS5 tokenizer on a connection.
Status registerCjkTokenizer(sqlite3* db);

}  // namespace klipora::library
