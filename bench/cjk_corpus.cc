#include "cjk_corpus.h"

#include "library/search_cjk.h"
#include "library/search_text.h"

namespace klipora::bench {
namespace {

// Frequent characters of each script; words are drawn from them at random,
// so the pairs of characters spread like those of real text.
constexpr char32_t kHanzi[] =
    U"的一是不了人我在有他这中大来上国个到说们为子和你地出道也时年得就那要下以生会自着去之过家"
    U"学对可她里后小么心多天而能好都然没日于起还发成事只作当想看文无开手十用主行方又如前所本见经"
    U"头面公同三已老从动两长知民样现分将外但身些与高意进把法此实回二理美点月明其种声全工己话儿者"
    U"向情部正名定女问力机给等几很业最间新什打便位因重被走电四第门相次东政海口使教西再平真听世气"
    U"信北少关并内加化由却代军产入先山五太水万市眼体别处总才场师书比住员九笑性通目华报立马命张活"
    U"难神数件安表原车白应路期叫死常提感金何更反合放做系计或司利受光王果亲界及今京务制解各任至清"
    U"物台象记边共风战干接它许八特觉望直服毛林题建南度统色字请交爱让认算论百吃义科怎元社术结六功"
    U"指思非流每青管夫连远资队跟带花快条院变联言权往展该领传近留红治决周保达办运武半候七必城父强"
    U"步完革深区即求品士转量空甚众技轻程告江语英基派满式李息写呢识极令黄德收脸钱党倒未持取设始版"
    U"双历越史商千片容研像找友孩站广改议形委早房音火际则首单据导影失拿网香似斯专石若兵弟谁校读志"
    U"飞观争究包组造落视济喜离虽坏兴切支票预室讨价格订购款付账单号码";
constexpr char32_t kKanji[] =
    U"日本人会社時間年月大学生先私今何事自分見言思行来出入上下中前後新古高安長東京電話書読食飲買"
    U"売教室会議資料予定確認連絡送信受取注文商品価格税込合計請求支払口座番号";
constexpr char32_t kHiragana[] = U"あいうえおかきくけこさしすせそたちつてとなにぬねのはひふへほまみむめもやゆよらりるれろわをん";
constexpr char32_t kKatakana[] = U"アイウエオカキクケコサシスセソタチツテトナニヌネノハヒフヘホマミムメモヤユヨラリルレロワンガギグゲゴダデドバビブベボパピプペポー";
constexpr char32_t kParticles[][3] = {U"の", U"を", U"に", U"は", U"が", U"で", U"と", U"から", U"まで"};

std::u32string Pick(std::mt19937& rng, std::u32string_view pool, int n) {
  std::u32string out;
  std::uniform_int_distribution<size_t> at(0, pool.size() - 1);
  for (int i = 0; i < n; ++i) out.push_back(pool[at(rng)]);
  return out;
}

std::discrete_distribution<size_t> Zipf(size_t n) {
  std::vector<double> weights(n);
  for (size_t i = 0; i < n; ++i) weights[i] = 1.0 / static_cast<double>(i + 1);
  return std::discrete_distribution<size_t>(weights.begin(), weights.end());
}

// A Hangul syllable from a frequent initial, vowel and (sometimes) final.
char32_t Syllable(std::mt19937& rng) {
  static constexpr int kInitials[] = {0, 2, 3, 5, 6, 7, 9, 11, 12, 14, 18};
  static constexpr int kVowels[] = {0, 4, 8, 13, 18, 20, 1, 5};
  static constexpr int kFinals[] = {0, 0, 0, 4, 8, 16, 21, 1};
  auto pick = [&rng](const auto& list) {
    return list[std::uniform_int_distribution<size_t>(0, std::size(list) - 1)(rng)];
  };
  return 0xAC00 + (pick(kInitials) * 21 + pick(kVowels)) * 28 + pick(kFinals);
}

}  // namespace

CjkCorpus::CjkCorpus(uint32_t seed) : rng_(seed) {
  std::uniform_int_distribution<int> length(1, 10);
  Language chinese, japanese, korean;
  chinese.comma = U"，";
  chinese.stop = U"。";
  japanese.comma = U"、";
  japanese.stop = U"。";
  korean.comma = U", ";
  korean.stop = U". ";
  korean.blanks = true;
  for (int i = 0; i < 30000; ++i) {
    int l = length(rng_);
    chinese.words.push_back(Pick(rng_, kHanzi, l <= 2 ? 1 : l <= 8 ? 2 : l == 9 ? 3 : 4));
    if (i % 3 == 0) {
      japanese.words.push_back(Pick(rng_, kKatakana, 2 + l % 4));
    } else {
      std::u32string w = Pick(rng_, kKanji, l <= 6 ? 2 : 1) + Pick(rng_, kHiragana, l % 3);
      japanese.words.push_back(w + kParticles[static_cast<size_t>(l) % std::size(kParticles)]);
    }
    std::u32string k;
    for (int n = 2 + l % 3; n > 0; --n) k.push_back(Syllable(rng_));
    korean.words.push_back(k);
  }
  for (Language* language : {&chinese, &japanese, &korean}) {
    language->zipf = Zipf(language->words.size());
    languages_.push_back(std::move(*language));
  }
}

std::u32string CjkCorpus::sentence(Language& language) {
  std::u32string out;
  int words = std::uniform_int_distribution<int>(4, 14)(rng_);
  for (int i = 0; i < words; ++i) {
    if (i > 0 && language.blanks) out += U" ";
    if (i > 0 && i % 6 == 0) out += language.comma;
    out += language.words[language.zipf(rng_)];
  }
  return out + language.stop;
}

std::string CjkCorpus::text(int characters) {
  Language& language = languages_[next_++ % languages_.size()];
  const bool ocrBlanks = std::uniform_int_distribution<int>(0, 3)(rng_) == 0;
  const char* latin[] = {"OK", "PDF", "iPhone", "Wi-Fi", "2024", "USB", "total", "ID"};
  std::u32string text;
  while (static_cast<int>(text.size()) < characters) {
    if (!text.empty()) text += U"\n";
    if (std::uniform_int_distribution<int>(0, 4)(rng_) == 0) {
      for (const char* c = latin[rng_() % std::size(latin)]; *c; ++c) text.push_back(*c);
      text += U" ";
    }
    text += sentence(language);
  }
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    library::appendUtf8(text[i], out);
    if (ocrBlanks && text[i] >= 0x3000 && i + 1 < text.size() && text[i + 1] >= 0x3000) {
      out += ' ';
    }
  }
  return out;
}

std::vector<std::string> CjkCorpus::terms(const std::vector<std::string>& texts, int characters,
                                          int count) {
  std::vector<std::string> out;
  const size_t n = static_cast<size_t>(characters);
  for (int tries = 0; static_cast<int>(out.size()) < count && tries < count * 100; ++tries) {
    const std::string& text = texts[rng_() % texts.size()];
    auto runs = library::cjkRuns(text);
    if (runs.empty()) continue;
    const std::u32string& run = runs[rng_() % runs.size()].characters;
    if (run.size() < n) continue;
    size_t at = std::uniform_int_distribution<size_t>(0, run.size() - n)(rng_);
    out.push_back(library::toUtf8(run.substr(at, n)));
  }
  return out;
}

}  // namespace klipora::bench
