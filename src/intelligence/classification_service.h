// ClassificationService: the image labels that category resolution reads.
// classify() loads the image at a path and returns its labels with their
// confidences, keeping only those above 0.1. The labelling itself is a
// backend's business (labelImage()); the built-in default, which ships until
// a model-backed labeler is plugged in, checks that the image can be loaded
// and returns no labels.
//
// Thread rules: a service is called from one serial queue at a time; a
// backend need not be re-entrant.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tl/expected.hpp>

#include "intelligence/category_evidence.h"

namespace klipora {
class FileSystem;
class ImageCodec;
}  // namespace klipora

namespace klipora::intelligence {

struct ClassificationError {
  enum class Case { unreadableImage };
  static ClassificationError unreadableImage() { return {Case::unreadableImage}; }
  // "Could not load image for classification."
  std::string errorDescription() const;

  Case kind;
};

using ClassificationResult = tl::expected<std::vector<ClassificationLabel>, ClassificationError>;

inline constexpr float kMinLabelConfidence = 0.1f;

class ClassificationService {
 public:
  ClassificationService() = default;
  ClassificationService(const ClassificationService&) = delete;
  ClassificationService& operator=(const ClassificationService&) = delete;
  virtual ~ClassificationService() = default;

  // unreadableImage when the image cannot be loaded; the caller then resolves
  // with no labels. Labels without a confidence above 0.1 are dropped.
  ClassificationResult classify(const std::string& imageURL);

 protected:
  // The backend: every label the model sees, unfiltered.
  virtual ClassificationResult labelImage(const std::string& imageURL) = 0;
};

// The built-in default: reads the file and its image header through the
// platform, then labels nothing.
std::unique_ptr<ClassificationService> makeDefaultClassificationService(FileSystem& fileSystem,
                                                                        ImageCodec& codec);

}  // namespace klipora::intelligence
