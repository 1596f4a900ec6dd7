// The stores of the user's markup assets, kept outside any document under the
// application-support folder (or another root given at creation):
//   signatures.json          MarkupSignatureStore: the list of signatures
//   Watermarks.json          MarkupWatermarkStore: the index of stamps
//   Watermarks/<UUID>.png    the image of one watermark stamp
// Each reads its list on its serial I/O executor when created and hands it to
// the owning thread (a missing file is an empty list; one that cannot be read
// or decoded is logged, "MarkupSignatureStore load failed: …", and leaves the
// list empty); until then the list is empty and loaded() is false. Every
// change saves the whole list on the I/O executor, logging "… save failed: …"
// when the write fails; a change made before the list has arrived is kept
// and saved with it. Nothing reaches the caller as an error.
//
// Thread rules: lists are read and changed on one thread (the owner, whose
// executor is `owner`); file input and output run on `io`, which must run
// work in order. A store destroyed before its list arrives drops it. Writing
// a new watermark's PNG is the one write made on the caller's thread, since
// add() answers whether it succeeded.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "markup/markup_assets.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/image_codec.h"

namespace klipora::markup {

// An executor that runs each write as it is posted, for short-lived users of
// the stores (a command) that must not end before their writes.
class RunInPlace final : public Executor {
 public:
  void post(std::function<void()> work) override { work(); }
};

class MarkupSignatureStore {
 public:
  MarkupSignatureStore(const MarkupSignatureStore&) = delete;
  MarkupSignatureStore& operator=(const MarkupSignatureStore&) = delete;
  static constexpr char kFileName[] = "signatures.json";

  MarkupSignatureStore(FileSystem& fs, Executor& io, Executor& owner,
                       const std::string& rootFolder, Clock& clock);

  const std::vector<MarkupSignature>& signatures() const { return signatures_; }
  std::optional<MarkupSignature> signature(const UUID& id) const;
  // Adds strokes drawn on the pad as a new signature (its aspect ratio from
  // the strokes' bounds) and returns it; none for strokes without points.
  std::optional<MarkupSignature> add(std::vector<SignatureStroke> strokes, std::string name);
  // False when no signature has the id.
  bool rename(const UUID& id, std::string name);
  bool remove(const UUID& id);
  const std::string& fileURL() const { return fileURL_; }
  bool loaded() const { return loaded_; }

 private:
  void save();

  FileSystem& fs_;
  Executor& io_;
  Clock& clock_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  bool loaded_ = false;
  bool saveWhenLoaded_ = false;
  std::string root_;
  std::string fileURL_;
  std::vector<MarkupSignature> signatures_;
};

class MarkupWatermarkStore {
 public:
  MarkupWatermarkStore(const MarkupWatermarkStore&) = delete;
  MarkupWatermarkStore& operator=(const MarkupWatermarkStore&) = delete;
  static constexpr char kIndexName[] = "Watermarks.json";
  static constexpr char kImagesFolder[] = "Watermarks";
  // The name of a stamp added without one.
  static constexpr char kDefaultName[] = "Watermark";

  MarkupWatermarkStore(FileSystem& fs, ImageCodec& codec, Executor& io, Executor& owner,
                       const std::string& rootFolder, Clock& clock);

  const std::vector<MarkupWatermarkStamp>& stamps() const { return stamps_; }
  std::optional<MarkupWatermarkStamp> stamp(const UUID& id) const;
  // Writes the image as Watermarks/<UUID>.png and indexes it. The name is
  // trimmed; an empty one becomes "Watermark". None (logged "MarkupWatermarkStore
  // add: PNG write failed: …") when the image cannot be encoded or written.
  std::optional<MarkupWatermarkStamp> add(const PixelImage& image, std::string name);
  bool rename(const UUID& id, std::string name);
  // Removes the stamp from the index, deletes its PNG and forgets its image.
  bool remove(const UUID& id);
  // The stamp's decoded image, cached; none when the stamp or its file is gone.
  std::shared_ptr<const PixelImage> image(const UUID& id);

  const std::string& indexURL() const { return indexURL_; }
  const std::string& imagesDir() const { return imagesDir_; }
  std::string imagePath(const UUID& id) const;
  bool loaded() const { return loaded_; }

 private:
  void save();

  FileSystem& fs_;
  ImageCodec& codec_;
  Executor& io_;
  Clock& clock_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  bool loaded_ = false;
  bool saveWhenLoaded_ = false;
  std::string root_;
  std::string indexURL_;
  std::string imagesDir_;
  std::vector<MarkupWatermarkStamp> stamps_;
  std::map<UUID, std::shared_ptr<const PixelImage>> imageCache_;
};

// The renderer's view of both stores: a signature stamp or watermark whose
// asset is gone draws nothing.
class MarkupStoredAssets final : public MarkupAssetSource {
 public:
  MarkupStoredAssets(MarkupSignatureStore& signatures, MarkupWatermarkStore& watermarks)
      : signatures_(signatures), watermarks_(watermarks) {}
  std::optional<MarkupSignature> signature(const UUID& id) override {
    return signatures_.signature(id);
  }
  std::shared_ptr<const PixelImage> watermarkImage(const UUID& id) override {
    return watermarks_.image(id);
  }

 private:
  MarkupSignatureStore& signatures_;
  MarkupWatermarkStore& watermarks_;
};

}  // namespace klipora::markup
