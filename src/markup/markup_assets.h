// The user's own markup assets, reused across screenshots and named by UUID
// from documents: drawn signatures (referred to by signature stamps) and
// watermark images (referred to by watermark placements). The stores that
// keep them are markup_signature_store.h and markup_watermark_store.h.
// Plain values, safe to copy between threads.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "markup/markup_values.h"
#include "platform/date.h"
#include "platform/pixel_image.h"
#include "platform/uuid.h"

namespace klipora::markup {

struct SignatureStroke {
  std::vector<Point> points;  // in the signature pad's coordinates
  double width = 2;
  bool operator==(const SignatureStroke&) const = default;
};

struct MarkupSignature {
  UUID id;
  std::string name;
  std::vector<SignatureStroke> strokes;
  double aspectRatio = 1;  // width over height of the drawn signature
  Date createdAt;
  bool operator==(const MarkupSignature&) const = default;
};

struct MarkupWatermarkStamp {
  UUID id;
  std::string name;
  double aspectRatio = 1;
  Date createdAt;
  bool operator==(const MarkupWatermarkStamp&) const = default;
};

// Where the renderer finds the assets a document names. A missing asset is
// none, and its layer draws nothing.
//
// Thread rules: called from the thread that renders.
class MarkupAssetSource {
 public:
  virtual ~MarkupAssetSource() = default;
  virtual std::optional<MarkupSignature> signature(const UUID& id) = 0;
  // The decoded image of a watermark stamp (straight RGBA).
  virtual std::shared_ptr<const PixelImage> watermarkImage(const UUID& id) = 0;
};

}  // namespace klipora::markup
