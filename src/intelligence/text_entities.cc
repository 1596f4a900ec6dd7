// The entity rules of text enrichment.
#include <algorithm>
#include <array>
#include <initializer_list>
#include <set>
#include <string>

#include "intelligence/category_expression.h"
#include "intelligence/text_enrichment.h"

namespace klipora::intelligence {
namespace {

enum class Kind { web, email, path, money, date, phone };

// Pieces shared by the money and date rules.
constexpr std::string_view kCurrencyCode =
    "(?:USD|EUR|GBP|JPY|CHF|CAD|AUD|NZD|CNY|INR|SEK|NOK|DKK|PLN|CZK|HUF|BRL|MXN|ZAR|KRW|SGD|HKD)";
constexpr std::string_view kCurrencySign = "(?:[$€£¥₹₩₽]|\\b(?:US|CA|AU|NZ|HK|R|A|C)\\$)";
// Digits with optional thousands separators and cents; never stops inside
// a number.
constexpr std::string_view kAmount =
    "(?:[0-9]{1,3}(?:[,.'\\x{00A0}\\x{202F}][0-9]{3})+|[0-9]+)(?:[.,][0-9]{1,2})?(?![0-9])";
constexpr std::string_view kDay = "(?:0?[1-9]|[12][0-9]|3[01])";
constexpr std::string_view kOrdinal = "(?:st|nd|rd|th)?";
constexpr std::string_view kMonth =
    "(?:jan(?:uary)?|feb(?:ruary)?|mar(?:ch)?|apr(?:il)?|may|june?|july?|aug(?:ust)?"
    "|sep(?:t(?:ember)?)?|oct(?:ober)?|nov(?:ember)?|dec(?:ember)?)\\b\\.?";
constexpr std::string_view kYear = "(?:,?\\h+(?:19|20)[0-9]{2}\\b)?";

std::string Join(std::initializer_list<std::string_view> pieces) {
  std::string pattern;
  for (std::string_view piece : pieces) pattern += piece;
  return pattern;
}

// Sign or code before the amount, or after it.
std::string MoneyPattern() {
  std::string before = Join({"(?:", kCurrencySign, "|\\b", kCurrencyCode, "\\b)\\h?", kAmount});
  std::string after =
      Join({"(?<![0-9.,])", kAmount, "\\h?(?:", kCurrencySign, "|", kCurrencyCode, "\\b)"});
  return before + "|" + after;
}

// ISO; day and month with a four-digit year (or two after slashes); with the
// month's name, day first or month first.
std::string DatePattern() {
  std::string iso = Join({"\\b(?:19|20)[0-9]{2}-(?:0[1-9]|1[0-2])-", kDay, "(?![0-9])"});
  std::string numeric =
      Join({"(?<![0-9.,/-])", kDay, "([./-])", kDay, "\\1(?:19|20)[0-9]{2}(?![0-9])"});
  std::string shortYear = Join({"(?<![0-9.,/-])", kDay, "/", kDay, "/[0-9]{2}(?![0-9/])"});
  std::string dayFirst = Join({"\\b", kDay, kOrdinal, "\\.?\\h+", kMonth, kYear});
  std::string monthFirst = Join({"\\b", kMonth, "\\h+", kDay, kOrdinal, "\\b", kYear});
  return "(?i)" + iso + "|" + numeric + "|" + shortYear + "|" + dayFirst + "|" + monthFirst;
}

struct Rule {
  Kind kind;
  CategoryExpression expression;
};

// In order of precedence where two rules match at one place.
const std::array<Rule, 6>& Rules() {
  static const std::array<Rule, 6> rules = {{
      {Kind::web, CategoryExpression(R"((?i)\b(?:https?://|ftp://|www\.)[^\s<>"'`]+)")},
      {Kind::email,
       CategoryExpression(R"((?i)(?<![\w.%+-])[a-z0-9][a-z0-9._%+-]*@)"
                          R"([a-z0-9](?:[a-z0-9-]*[a-z0-9])?(?:\.[a-z0-9](?:[a-z0-9-]*[a-z0-9])?)*)"
                          R"(\.[a-z]{2,24}\b)")},
      // Absolute or relative with two parts at least, in the home folder, or
      // on a Windows drive.
      {Kind::path, CategoryExpression(R"((?<![\w/:.~\\])(?:~(?:/[\w.@+-]+)+/?)"
                                      R"(|\.{0,2}(?:/[\w.@+-]+){2,}/?))"
                                      R"(|\b[A-Za-z]:\\(?:[\w.@+-]+\\)*[\w.@+-]*)")},
      {Kind::money, CategoryExpression(MoneyPattern())},
      {Kind::date, CategoryExpression(DatePattern())},
      // Candidates only: IsPhoneNumber() decides.
      {Kind::phone,
       CategoryExpression(R"((?<![\w+.,/-])(?:\+[0-9]{1,3}[\h.-]?)?(?:\([0-9]{1,4}\)[\h.-]?)?)"
                          R"([0-9]{2,8}(?:[\h.-][0-9]{2,8}){0,4}(?![\w-]|[.,][0-9]))")},
  }};
  return rules;
}

struct Match {
  size_t start;
  size_t end;
  Kind kind;
};

// Sentence punctuation after an address, path or date belongs to the sentence;
// a closing bracket does when the match holds no opening one.
size_t TrimTrailing(std::string_view text, size_t start, size_t end) {
  while (end > start) {
    char c = text[end - 1];
    std::string_view match = text.substr(start, end - start);
    bool unbalanced = (c == ')' && match.find('(') == std::string_view::npos) ||
                      (c == ']' && match.find('[') == std::string_view::npos);
    if (std::string_view(".,;:!?'\"").find(c) == std::string_view::npos && !unbalanced) break;
    --end;
  }
  return end;
}

// 7 to 15 digits, written the way phone numbers are: with a country code,
// an area code in brackets, or in groups; not an IPv4 address.
bool IsPhoneNumber(std::string_view match) {
  int digits = 0, groups = 0, longestGroup = 0, run = 0;
  bool dotsOnly = true;
  for (char c : match) {
    bool digit = c >= '0' && c <= '9';
    if (digit) {
      ++digits;
      groups += run == 0;
      longestGroup = std::max(longestGroup, ++run);
    } else {
      run = 0;
      dotsOnly = dotsOnly && c == '.';
    }
  }
  if (digits < 7 || digits > 15) return false;
  if (dotsOnly && groups == 4 && longestGroup <= 3) return false;
  return match.front() == '+' || match.find('(') != std::string_view::npos || groups >= 3 ||
         (groups == 2 && digits == 7);
}

std::string Collapsed(std::string_view match) {
  std::string out;
  for (char c : match) {
    bool blank = c == ' ' || c == '\t';
    if (!blank) {
      out += c;
    } else if (!out.empty() && out.back() != ' ') {
      out += ' ';
    }
  }
  return out;
}

std::string Folded(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

}  // namespace

std::vector<std::string> findEntities(std::string_view text) {
  std::vector<Match> matches;
  for (const Rule& rule : Rules()) {
    rule.expression.forEachMatch(text, [&](const size_t* ovector, int) {
      size_t start = ovector[0], end = ovector[1];
      if (rule.kind != Kind::money && rule.kind != Kind::phone) {
        end = TrimTrailing(text, start, end);
      }
      std::string_view match = text.substr(start, end - start);
      bool keep = end > start && (rule.kind != Kind::phone || IsPhoneNumber(match));
      if (keep) matches.push_back({start, end, rule.kind});
      return true;
    });
  }
  std::stable_sort(matches.begin(), matches.end(), [](const Match& a, const Match& b) {
    return a.start != b.start ? a.start < b.start : a.kind < b.kind;
  });
  std::vector<std::string> entities;
  std::set<std::string> seen;
  size_t taken = 0;
  for (const Match& m : matches) {
    if (m.start < taken) continue;
    taken = m.end;
    std::string entity = Collapsed(text.substr(m.start, m.end - m.start));
    if (!seen.insert(Folded(entity)).second) continue;
    entities.push_back(std::move(entity));
    if (entities.size() == kMaxEntities) break;
  }
  return entities;
}

}  // namespace klipora::intelligence
