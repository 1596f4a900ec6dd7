// SearchIndex: the full-text index of the library's items, an SQLite FTS5
// table ("ScreenshotSearch": unicode61 tokens with diacritics folded, prefix
// indexes of 2 and 3 characters) over the searchable fields of each
// ScreenshotItem (title, file name, recognised text, summary and note, tags,
// keywords and entities, effective category, source application). A second
// FTS5 table over the same fields ("ScreenshotSearchCJK") holds only their
// Chinese, Japanese and Korean text, as bigrams (search_cjk.h): those scripts
// put no blanks between words, so a word inside a sentence is found there.
// It holds only the items whose text has any, and only query terms in those
// scripts read it. The first table receives the text with that CJK text
// blanked out and full-width forms folded, so "iPhone手机", "会议室meeting"
// and "ＡＢＣ" hold the words "iphone", "meeting" and "abc".
//
// How it stays in step, for every write path (this process, another
// process, a script or the sqlite3 shell): the index covers every item up to
// a recorded rowid, and items inserted later lie above it. Triggers on the
// ScreenshotItem table, created with the schema and kept in the store file,
// note each change of a searchable field and each delete of an indexed item
// in "ScreenshotSearchPending", with the text the index held for it, inside
// the writer's own transaction. catchUp() then indexes the new and noted
// items in both tables in one transaction; any process runs it before it searches (the
// library query does this itself), and the app may run it when idle. So a
// batch save pays only for the notes, and no search ever misses a saved
// change. Inserts carry no trigger at all: an AFTER INSERT trigger alone
// made a batch save of wide rows a third slower. Trash and archive marks are
// not indexed, so moving an item in or out of the trash never touches the
// index. The indexes read item text through views ("ScreenshotSearchText" as
// it stands; "ScreenshotSearchSource" and "ScreenshotSearchCJKSource" as each
// index receives it).
//
// Thread rules: functions take the caller's connection and use it on the
// caller's thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "library/database.h"

namespace klipora::library {

class SearchIndex {
 public:
  // Creates the index and its triggers, or rebuilds them when this build's
  // definition differs from the stored one or the item rows were renumbered
  // (a VACUUM by an outside tool). An index of the version before the second
  // table, or before the first one received folded text, is brought up to
  // date in place instead, re-indexing only the items with CJK-block text.
  // Runs inside the caller's transaction (part of schema setup).
  static Status ensure(Database& db);

  // Indexes every item noted since the last catch-up, in one transaction.
  // Returns the number of items brought up to date (0 costs one read).
  static Result<int64_t> catchUp(Database& db);

  // Drops and re-creates the index from the items' text.
  static Status rebuild(Database& db);

  // The tokens `text` yields for the first index (folded, lower-case).
  static Result<std::vector<std::string>> tokens(Database& db, std::string_view text);

  // The FTS5 MATCH expressions for what the user typed, one per index. Blanks
  // between two CJK characters are dropped first (search_cjk.h). Each
  // blank-separated word then yields, for the first index, a quoted phrase of
  // the tokens of its text outside CJK scripts, which matches as a prefix
  // when its last token has two characters or more; and for the CJK index a
  // quoted run per run of CJK characters in it (a phrase of its bigrams; a
  // single character matches as a prefix). So no input can be read as FTS
  // syntax. Every phrase must match; words without a token are dropped; only
  // the first kMaxTerms phrases count. An expression is empty when nothing
  // is asked of its index.
  struct TextMatch {
    std::string words;  // for kTable
    std::string cjk;    // for kCjkTable
  };
  static Result<TextMatch> matchExpressions(Database& db, std::string_view freeText);
  // A MATCH expression that requires `tagName` in the tags column; empty when
  // the name has no token (then only the exact check applies).
  static Result<std::string> tagExpression(Database& db, std::string_view tagName);

  // How many indexed items hold each of `terms` (lower-case words, looked up
  // with their full-width forms folded; a term no item holds, or in CJK
  // script, is left out), and how many items the
  // index covers: the document frequencies that make a word distinctive.
  // One lookup per term in the index's term list, whatever the library's size.
  struct DocumentFrequencies {
    std::map<std::string, int64_t> perTerm;
    int64_t documentCount = 0;
  };
  static Result<DocumentFrequencies> documentFrequencies(Database& db,
                                                         const std::vector<std::string>& terms);

  static constexpr size_t kMaxTerms = 32;
  static constexpr const char* kTable = "ScreenshotSearch";
  // The second index: the same columns, as bigrams of their CJK text.
  static constexpr const char* kCjkTable = "ScreenshotSearchCJK";
};

}  // namespace klipora::library
