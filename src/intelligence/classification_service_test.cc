#include "intelligence/classification_service.h"

#include <gtest/gtest.h>

#include "platform/testing/fake_image_codec.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::intelligence {
namespace {

class FixedLabeler final : public ClassificationService {
 public:
  std::vector<ClassificationLabel> labels;

 protected:
  ClassificationResult labelImage(const std::string&) override { return labels; }
};

TEST(ClassificationServiceTest, KeepsOnlyLabelsAboveTheFloor) {
  FixedLabeler labeler;
  labeler.labels = {{"chat", 0.9f}, {"art", 0.1f}, {"feed", std::nullopt}, {"logo", 0.11f}};
  auto labels = labeler.classify("/any.png");
  ASSERT_TRUE(labels.has_value());
  ASSERT_EQ(labels->size(), 2u);
  EXPECT_EQ((*labels)[0].label, "chat");
  EXPECT_EQ((*labels)[1].label, "logo");
}

TEST(ClassificationServiceTest, DefaultLabelsNothingButRejectsWhatIsNoImage) {
  klipora::testing::MemoryFileSystem fs;
  klipora::testing::FakeImageCodec codec;
  fs.addFile("/lib/a.png", klipora::testing::FakeImageCodec::makeImage(10, 10));
  fs.addFile("/lib/notes.txt", "just text");
  auto service = makeDefaultClassificationService(fs, codec);

  auto labels = service->classify("/lib/a.png");
  ASSERT_TRUE(labels.has_value());
  EXPECT_TRUE(labels->empty());
  for (const char* path : {"/lib/notes.txt", "/lib/missing.png"}) {
    auto failed = service->classify(path);
    ASSERT_FALSE(failed.has_value()) << path;
    EXPECT_EQ(failed.error().errorDescription(), "Could not load image for classification.");
  }
}

}  // namespace
}  // namespace klipora::intelligence
