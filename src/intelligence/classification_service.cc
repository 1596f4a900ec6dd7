#include "intelligence/classification_service.h"

#include <algorithm>

#include "platform/file_system.h"
#include "platform/image_codec.h"

namespace klipora::intelligence {
namespace {

class DefaultClassificationService final : public ClassificationService {
 public:
  DefaultClassificationService(FileSystem& fileSystem, ImageCodec& codec)
      : fileSystem_(fileSystem), codec_(codec) {}

 protected:
  ClassificationResult labelImage(const std::string& imageURL) override {
    auto bytes = fileSystem_.readFile(imageURL);
    if (!bytes || !codec_.properties(*bytes)) {
      return tl::unexpected(ClassificationError::unreadableImage());
    }
    return std::vector<ClassificationLabel>{};
  }

 private:
  FileSystem& fileSystem_;
  ImageCodec& codec_;
};

}  // namespace

std::string ClassificationError::errorDescription() const {
  switch (kind) {
    case Case::unreadableImage: return "Could not load image for classification.";
  }
  return {};
}

ClassificationResult ClassificationService::classify(const std::string& imageURL) {
  ClassificationResult labels = labelImage(imageURL);
  if (!labels) return labels;
  std::erase_if(*labels, [](const ClassificationLabel& label) {
    return !label.confidence || !(*label.confidence > kMinLabelConfidence);
  });
  return labels;
}

std::unique_ptr<ClassificationService> makeDefaultClassificationService(FileSystem& fileSystem,
                                                                        ImageCodec& codec) {
  return std::make_unique<DefaultClassificationService>(fileSystem, codec);
}

}  // namespace klipora::intelligence
