#include "library/search_cjk.h"

#include <sqlite3.h>
#include <unicode/unorm2.h>

#include "library/search_text.h"

namespace klipora::library {
namespace {

bool In(char32_t cp, char32_t first, char32_t last) { return cp >= first && cp <= last; }

// Characters of the blocks NFKC may turn into CJK characters, or that are
// CJK characters already: the only ones worth folding.
bool IsCandidate(char32_t cp) {
  return In(cp, 0x1100, 0x11FF) || In(cp, 0x2E80, 0x2FDF) || In(cp, 0x3000, 0x33FF) ||
         In(cp, 0x3400, 0x4DBF) || In(cp, 0x4E00, 0x9FFF) || In(cp, 0xA960, 0xA97F) ||
         In(cp, 0xAC00, 0xD7FF) || In(cp, 0xF900, 0xFAFF) || In(cp, 0xFE30, 0xFE4F) ||
         In(cp, 0xFF00, 0xFFEF) || In(cp, 0x20000, 0x3FFFF);
}

// Candidates that NFKC may change: compatibility and width variants,
// enclosed and squared forms, radicals and combining voiced marks.
bool MayFold(char32_t cp) {
  return In(cp, 0x2E80, 0x2FDF) || cp == 0x3000 || In(cp, 0x3099, 0x309C) ||
         In(cp, 0x3131, 0x318F) || In(cp, 0x3200, 0x33FF) || In(cp, 0xF900, 0xFAFF) ||
         In(cp, 0xFE30, 0xFE4F) || In(cp, 0xFF00, 0xFFEF) || In(cp, 0x2F800, 0x2FA1F);
}

// Letters of the scripts, after folding: Han (with the iteration and
// closing marks), kana, bopomofo and Hangul.
bool IsCjkLetter(char32_t cp) {
  return In(cp, 0x4E00, 0x9FFF) || In(cp, 0x3400, 0x4DBF) || In(cp, 0x20000, 0x3FFFF) ||
         In(cp, 0xF900, 0xFAFF) || In(cp, 0x3041, 0x309A) || In(cp, 0x309D, 0x309F) ||
         In(cp, 0x30A1, 0x30FA) || In(cp, 0x30FC, 0x30FF) || In(cp, 0x31F0, 0x31FF) ||
         In(cp, 0x3005, 0x3007) || cp == 0x303B || In(cp, 0x3105, 0x312F) ||
         In(cp, 0x31A0, 0x31BF) || In(cp, 0xAC00, 0xD7A3) || In(cp, 0x1100, 0x11FF) ||
         In(cp, 0x3131, 0x318E) || In(cp, 0xA960, 0xA97F) || In(cp, 0xD7B0, 0xD7FF);
}

// Before folding: what becomes a CJK letter (half-width katakana, Hangul
// compatibility jamo and the like included).
bool BecomesCjkLetter(char32_t cp) {
  return IsCjkLetter(cp) || In(cp, 0xFF66, 0xFF9F) || In(cp, 0xFFA0, 0xFFDC) ||
         In(cp, 0x2F00, 0x2FD5) || In(cp, 0x2F800, 0x2FA1F);
}

bool IsBlank(char32_t cp) {
  return cp == ' ' || cp == '\t' || cp == '\n' || cp == '\r' || cp == 0x3000;
}

// Only text with a character at U+1100 or above can hold any of them.
bool MayHoldCjk(std::string_view text) {
  for (unsigned char c : text) {
    if (c >= 0xE1) return true;
  }
  return false;
}

std::u32string Nfkc(const std::u32string& in) {
  UErrorCode error = U_ZERO_ERROR;
  const UNormalizer2* nfkc = unorm2_getNFKCInstance(&error);
  if (U_FAILURE(error)) return in;
  std::u16string source;
  for (char32_t cp : in) {
    if (cp >= 0x10000) {
      source.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      source.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    } else {
      source.push_back(static_cast<char16_t>(cp));
    }
  }
  // Expansions (a squared word) stay well within 18 times the length.
  std::u16string folded(source.size() * 18 + 4, u'\0');
  int32_t length = unorm2_normalize(nfkc, source.data(), static_cast<int32_t>(source.size()),
                                    folded.data(), static_cast<int32_t>(folded.size()), &error);
  if (U_FAILURE(error)) return in;
  std::u32string out;
  for (int32_t i = 0; i < length; ++i) {
    char32_t c = folded[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length) {
      c = 0x10000 + ((c - 0xD800) << 10) + (folded[++i] - 0xDC00);
    }
    out.push_back(c);
  }
  return out;
}

class RunBuilder {
 public:
  explicit RunBuilder(std::vector<CjkRun>& runs) : runs_(runs) {}

  void feed(char32_t cp, size_t start, size_t end) {
    if (IsCjkLetter(cp)) {
      if (current_.characters.empty()) current_.start = start;
      current_.characters.push_back(cp);
      current_.end = end;
    } else if (!IsBlank(cp)) {
      finish();
    }
    // A blank keeps the run open: the next CJK letter continues it.
  }
  void finish() {
    if (!current_.characters.empty()) runs_.push_back(std::move(current_));
    current_ = {};
  }

 private:
  std::vector<CjkRun>& runs_;
  CjkRun current_;
};

// Consecutive candidate characters, folded together (NFKC composes a kana
// with the voiced mark that follows it).
class Span {
 public:
  void add(char32_t cp, size_t start, size_t end) {
    if (characters_.empty()) start_ = start;
    characters_.push_back(cp);
    end_ = end;
    starts_.push_back(start);
    mayFold_ = mayFold_ || MayFold(cp);
  }
  void flush(RunBuilder& builder) {
    if (characters_.empty()) return;
    std::u32string folded = mayFold_ ? Nfkc(characters_) : characters_;
    const bool aligned = folded.size() == characters_.size();
    for (size_t i = 0; i < folded.size(); ++i) {
      if (aligned) {
        builder.feed(folded[i], starts_[i], i + 1 < starts_.size() ? starts_[i + 1] : end_);
      } else {
        builder.feed(folded[i], start_, end_);
      }
    }
    characters_.clear();
    starts_.clear();
    mayFold_ = false;
  }

 private:
  std::u32string characters_;
  std::vector<size_t> starts_;
  size_t start_ = 0;
  size_t end_ = 0;
  bool mayFold_ = false;
};

// --- The FTS5 tokenizer ---------------------------------------------------

struct CjkTokenizerInstance {};

int CreateTokenizer(void*, const char**, int, Fts5Tokenizer** out) {
  *out = reinterpret_cast<Fts5Tokenizer*>(new CjkTokenizerInstance);
  return SQLITE_OK;
}

void DeleteTokenizer(Fts5Tokenizer* instance) {
  delete reinterpret_cast<CjkTokenizerInstance*>(instance);
}

int Tokenize(Fts5Tokenizer*, void* context, int flags, const char* text, int length,
             int (*token)(void*, int, const char*, int, int, int)) {
  if (text == nullptr || length <= 0) return SQLITE_OK;
  const bool query = (flags & FTS5_TOKENIZE_QUERY) != 0;
  for (const CjkRun& run : cjkRuns(std::string_view(text, static_cast<size_t>(length)))) {
    for (const std::string& term : cjkTerms(run.characters, query)) {
      // Offsets only serve highlighting: the whole run is near enough.
      int rc = token(context, 0, term.data(), static_cast<int>(term.size()),
                     static_cast<int>(run.start), static_cast<int>(run.end));
      if (rc != SQLITE_OK) return rc;
    }
  }
  return SQLITE_OK;
}

// --- SQL functions of the index views ------------------------------------

std::string_view TextArgument(sqlite3_value* value) {
  if (sqlite3_value_type(value) != SQLITE_TEXT) return {};
  const unsigned char* text = sqlite3_value_text(value);
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(text), static_cast<size_t>(sqlite3_value_bytes(value))};
}

void WordsFunction(sqlite3_context* context, int, sqlite3_value** argv) {
  const std::string_view text = TextArgument(argv[0]);
  if (!mayDifferForWordIndex(text)) {
    sqlite3_result_value(context, argv[0]);
    return;
  }
  const std::string words = wordIndexText(text);
  sqlite3_result_text(context, words.data(), static_cast<int>(words.size()), SQLITE_TRANSIENT);
}

template <bool (*kTest)(std::string_view)>
void AnyArgumentFunction(sqlite3_context* context, int argc, sqlite3_value** argv) {
  bool any = false;
  for (int i = 0; i < argc && !any; ++i) any = kTest(TextArgument(argv[i]));
  sqlite3_result_int(context, any ? 1 : 0);
}

}  // namespace

std::vector<CjkRun> cjkRuns(std::string_view text) {
  std::vector<CjkRun> runs;
  if (!MayHoldCjk(text)) return runs;
  RunBuilder builder(runs);
  Span span;
  for (size_t i = 0; i < text.size();) {
    char32_t cp = 0xFFFD;
    size_t n = decodeUtf8(text, i, &cp);
    if (n == 0) n = 1;
    if (IsCandidate(cp)) {
      span.add(cp, i, i + n);
    } else {
      span.flush(builder);
      builder.feed(cp, i, i + n);
    }
    i += n;
  }
  span.flush(builder);
  builder.finish();
  return runs;
}

bool hasCjkText(std::string_view text) {
  if (!MayHoldCjk(text)) return false;
  bool enclosed = false;  // an enclosed or squared form, which may fold to one
  for (size_t i = 0; i < text.size();) {
    char32_t cp = 0;
    size_t n = decodeUtf8(text, i, &cp);
    if (n != 0 && BecomesCjkLetter(cp)) return true;
    enclosed = enclosed || (n != 0 && (In(cp, 0x2E80, 0x2EFF) || In(cp, 0x3200, 0x33FF)));
    i += n == 0 ? 1 : n;
  }
  return enclosed && !cjkRuns(text).empty();
}

std::string wordIndexText(std::string_view text) {
  if (!MayHoldCjk(text)) return std::string(text);
  std::string out;
  out.reserve(text.size());
  std::u32string span;  // consecutive candidates, folded together
  bool mayFold = false;
  auto flush = [&] {
    for (char32_t c : mayFold ? Nfkc(span) : span) {
      if (IsCjkLetter(c)) {
        out.push_back(' ');
      } else {
        appendUtf8(c, out);
      }
    }
    span.clear();
    mayFold = false;
  };
  for (size_t i = 0; i < text.size();) {
    char32_t cp = 0;
    size_t n = decodeUtf8(text, i, &cp);
    if (n != 0 && IsCandidate(cp)) {
      span.push_back(cp);
      mayFold = mayFold || MayFold(cp);
    } else {
      flush();
      out.append(text.substr(i, n == 0 ? 1 : n));
    }
    i += n == 0 ? 1 : n;
  }
  flush();
  return out;
}

bool mayDifferForWordIndex(std::string_view text) {
  if (!MayHoldCjk(text)) return false;
  for (size_t i = 0; i < text.size();) {
    char32_t cp = 0;
    size_t n = decodeUtf8(text, i, &cp);
    if (n != 0 && IsCandidate(cp)) return true;
    i += n == 0 ? 1 : n;
  }
  return false;
}

std::string joinCjkAcrossBlanks(std::string_view text) {
  if (!MayHoldCjk(text)) return std::string(text);
  std::string out;
  out.reserve(text.size());
  bool afterCjk = false;  // the last character written was a CJK letter
  for (size_t i = 0; i < text.size();) {
    char32_t cp = 0;
    size_t n = decodeUtf8(text, i, &cp);
    if (n == 0) {
      out.push_back(text[i++]);
      afterCjk = false;
      continue;
    }
    if (afterCjk && IsBlank(cp)) {
      // Look past the blanks: drop them when a CJK letter follows.
      size_t j = i;
      char32_t next = 0;
      size_t m = 0;
      while (j < text.size() && (m = decodeUtf8(text, j, &next)) != 0 && IsBlank(next)) j += m;
      if (j < text.size() && m != 0 && BecomesCjkLetter(next)) {
        i = j;
        continue;
      }
    }
    out.append(text.substr(i, n));
    afterCjk = BecomesCjkLetter(cp);
    i += n;
  }
  return out;
}

std::vector<std::string> cjkTerms(const std::u32string& run, bool forQuery) {
  std::vector<std::string> terms;
  for (size_t i = 0; i + 1 < run.size(); ++i) terms.push_back(toUtf8(run.substr(i, 2)));
  if (!run.empty() && (!forQuery || run.size() == 1)) {
    terms.push_back(toUtf8(run.substr(run.size() - 1)));
  }
  return terms;
}

Status registerCjkSearch(sqlite3* db) {
  fts5_api* api = nullptr;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT fts5(?1)", -1, &stmt, nullptr) != SQLITE_OK) {
    return Status::Internal("this SQLite has no FTS5");
  }
  sqlite3_bind_pointer(stmt, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
  sqlite3_step(stmt);
  sqlite3_finalize(stmt);
  if (api == nullptr) return Status::Internal("this SQLite has no FTS5");
  static fts5_tokenizer tokenizer = {CreateTokenizer, DeleteTokenizer, Tokenize};
  if (api->xCreateTokenizer(api, kCjkTokenizer, nullptr, &tokenizer, nullptr) != SQLITE_OK) {
    return Status::Internal("cannot register the CJK tokenizer");
  }
  // Pure functions of their arguments: safe in views and for any caller.
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  const struct {
    const char* name;
    int arguments;
    void (*function)(sqlite3_context*, int, sqlite3_value**);
  } functions[] = {
      {"klipora_words", 1, WordsFunction},
      {"klipora_has_cjk", -1, AnyArgumentFunction<hasCjkText>},
      {"klipora_may_fold", -1, AnyArgumentFunction<mayDifferForWordIndex>},
  };
  for (const auto& f : functions) {
    if (sqlite3_create_function_v2(db, f.name, f.arguments, kFlags, nullptr, f.function, nullptr,
                                   nullptr, nullptr) != SQLITE_OK) {
      return Status::Internal(std::string("cannot register the SQL function ") + f.name);
    }
  }
  return Status::Ok();
}

}  // namespace klipora::library
