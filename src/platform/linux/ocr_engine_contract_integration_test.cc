// One contract for every OcrEngine: the fake that unit tests use must answer
// the way the Tesseract engine does.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "platform/linux/tesseract_ocr_engine.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/fake_ocr_engine.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

template <typename Factory>
class OcrEngineContractTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto engine = factory_.makeEngine({"eng"});
    ASSERT_TRUE(engine) << engine.error().message();
    engine_ = std::move(*engine);
    testing::TextImageOptions o;
    o.patches = {testing::TextPatch{"first line of text", 20, 20},
                 testing::TextPatch{"second line", 20, 120}};
    page_ = testing::makeTextPixels(o);
  }

  Factory factory_;
  std::unique_ptr<OcrEngine> engine_;
  PixelImage page_;
};

using Engines = ::testing::Types<testing::FakeOcrEngineFactory, TesseractOcrEngineFactory>;
TYPED_TEST_SUITE(OcrEngineContractTest, Engines);

bool Inside(const OcrBox& inner, const OcrBox& outer) {
  return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
         inner.bottom <= outer.bottom;
}

TYPED_TEST(OcrEngineContractTest, RequestsOutsideTheImageAreRefused) {
  OcrRequest request;
  EXPECT_EQ(this->engine_->recognize(request).error().code(), Status::Code::kInvalidArgument);
  PixelImage empty;
  request.image = &empty;
  EXPECT_EQ(this->engine_->recognize(request).error().code(), Status::Code::kInvalidArgument);
  request.image = &this->page_;
  request.region = {0, 0, this->page_.width + 1, 10};
  EXPECT_EQ(this->engine_->recognize(request).error().code(), Status::Code::kInvalidArgument);
  request.region = {};
  request.level = OcrLevel::lines;
  request.lines = {{-5, 0, 10, 10}};
  EXPECT_EQ(this->engine_->recognize(request).error().code(), Status::Code::kInvalidArgument);
}

TYPED_TEST(OcrEngineContractTest, ABlankPageHasNoLines) {
  PixelImage blank = PixelImage::filled(300, 100, 1, 255);
  OcrRequest request;
  request.image = &blank;
  for (OcrLevel level : {OcrLevel::accurate, OcrLevel::fast}) {
    request.level = level;
    auto lines = this->engine_->recognize(request);
    ASSERT_TRUE(lines) << lines.error().message();
    EXPECT_TRUE(lines->empty());
  }
}

TYPED_TEST(OcrEngineContractTest, TextComesBackAsLinesWithWordsInsideThem) {
  OcrRequest request;
  request.image = &this->page_;
  auto lines = this->engine_->recognize(request);
  ASSERT_TRUE(lines) << lines.error().message();
  ASSERT_FALSE(lines->empty());
  const OcrBox page{0, 0, this->page_.width, this->page_.height};
  for (const OcrObservation& line : *lines) {
    EXPECT_FALSE(line.text.empty());
    EXPECT_GE(line.confidence, 0);
    EXPECT_LE(line.confidence, 1);
    EXPECT_TRUE(Inside(line.box, page));
    ASSERT_FALSE(line.words.empty());
    for (const OcrBox& word : line.words) EXPECT_TRUE(Inside(word, line.box));
  }

  // Line by line: what each box holds, box by box, in the coordinates of the
  // whole page.
  request.level = OcrLevel::lines;
  request.lines = {{10, 110, 300, 150}, {10, 10, 400, 50}};
  auto read = this->engine_->recognize(request);
  ASSERT_TRUE(read) << read.error().message();
  ASSERT_EQ(read->size(), 2u);
  EXPECT_TRUE(Inside((*read)[0].box, request.lines[0]));
  EXPECT_TRUE(Inside((*read)[1].box, request.lines[1]));
}

TYPED_TEST(OcrEngineContractTest, AStopRequestAbandonsTheRecognition) {
  OcrRequest request;
  request.image = &this->page_;
  request.shouldStop = [] { return true; };
  auto lines = this->engine_->recognize(request);
  ASSERT_FALSE(lines);
  EXPECT_EQ(lines.error().code(), Status::Code::kCancelled);
  request.shouldStop = nullptr;  // the engine is still usable
  EXPECT_TRUE(this->engine_->recognize(request));
}

TEST(TesseractOcrEngineFactoryTest, AMissingLanguageNamesItsDebianPackage) {
  TesseractOcrEngineFactory factory;
  auto engine = factory.makeEngine({"eng", "chi_sim_vert"});
  ASSERT_FALSE(engine);
  EXPECT_EQ(engine.error().code(), Status::Code::kNotFound);
  EXPECT_NE(engine.error().message().find("tesseract-ocr-chi-sim-vert"), std::string::npos);
  EXPECT_EQ(factory.makeEngine({"../eng"}).error().code(), Status::Code::kInvalidArgument);
  EXPECT_EQ(TesseractOcrEngineFactory::debianPackageFor("script/Latin"),
            "tesseract-ocr-script-latn");
  // Debian's packages, installed or not, and the models in the folder.
  auto listed = factory.languages();
  auto find = [&](const std::string& code) {
    return std::find_if(listed.begin(), listed.end(),
                        [&](const OcrLanguage& l) { return l.code == code; });
  };
  ASSERT_NE(find("eng"), listed.end());
  EXPECT_TRUE(find("eng")->installed);
  ASSERT_NE(find("chi_sim_vert"), listed.end());
  EXPECT_EQ(*find("chi_sim_vert"),
            (OcrLanguage{"chi_sim_vert", "tesseract-ocr-chi-sim-vert", false}));
  EXPECT_EQ(find("osd"), listed.end());  // reads no text
  EXPECT_GT(listed.size(), 150u);
}

// Engines load a model from the copy this process read; a model replaced on
// disk is read again.
TEST(TesseractOcrEngineFactoryTest, AModelChangedOnDiskIsReadAgain) {
  testing::TempDir dir;
  const std::string model = dir.file("eng.traineddata");
  std::filesystem::copy_file("/usr/share/tesseract-ocr/5/tessdata/eng.traineddata", model);
  TesseractOcrEngineFactory factory(dir.path());
  testing::TextImageOptions o;
  o.patches = {testing::TextPatch{"model read once", 20, 20}};
  PixelImage page = testing::makeTextPixels(o);
  OcrRequest request;
  request.image = &page;
  auto reads = [&](OcrEngine& engine) {
    auto lines = engine.recognize(request);
    return lines && !lines->empty() && lines->front().text == "model read once";
  };
  auto first = factory.makeEngine({"eng"});
  ASSERT_TRUE(first) << first.error().message();
  auto second = factory.makeEngine({"eng"});
  ASSERT_TRUE(second) << second.error().message();
  EXPECT_TRUE(reads(**first));
  EXPECT_TRUE(reads(**second));

  std::ofstream(model, std::ios::trunc).close();  // an empty model now
  EXPECT_FALSE(factory.makeEngine({"eng"}));
  std::filesystem::remove(model);
  std::filesystem::copy_file("/usr/share/tesseract-ocr/5/tessdata/eng.traineddata", model);
  auto again = factory.makeEngine({"eng"});
  ASSERT_TRUE(again) << again.error().message();
  EXPECT_TRUE(reads(**again));
  EXPECT_TRUE(reads(**first));  // engines already loaded keep working
}

}  // namespace
}  // namespace klipora
