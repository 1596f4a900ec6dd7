#include "markup/markup_asset_stores.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>

#include "markup/markup_json_coding.h"
#include "platform/log.h"

namespace klipora::markup {

// The saved keys of the asset records, walked by the markup JSON coder.
template <RecordOf<SignatureStroke> S, typename V>
void visitFields(S& s, V& v) {
  v("points", s.points), v("width", s.width);
}

template <RecordOf<MarkupSignature> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("name", s.name), v("strokes", s.strokes), v("aspectRatio", s.aspectRatio);
  v("createdAt", s.createdAt);
}

template <RecordOf<MarkupWatermarkStamp> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("name", s.name), v("aspectRatio", s.aspectRatio), v("createdAt", s.createdAt);
}

namespace {

using json_coding::Json;

constexpr const char* kLogArea = "Markup";

template <typename T>
Result<std::string> EncodeList(const std::vector<T>& list) {
  json_coding::Encoder encoder;
  Json out = encoder.value(list);
  if (!encoder.allFinite) return Err(Status::InvalidArgument("a number is not finite"));
  return out.dump(2) + "\n";
}

template <typename T>
Result<std::vector<T>> LoadList(FileSystem& fs, const std::string& path) {
  if (!fs.exists(path)) return std::vector<T>();
  ASSIGN_OR_RETURN(std::string text, fs.readFile(path));
  Json j = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (j.is_discarded()) return Err(Status::Corruption(path + ": not valid JSON"));
  std::vector<T> list;
  json_coding::Decoder decoder;
  json_coding::Path root;
  if (!decoder.read(j, root, list)) {
    return Err(Status::Corruption(path + ": " + decoder.status.message()));
  }
  return list;
}

// Reads the list on `io` and hands it to `arrive` on `owner`, unless the
// store has gone by then.
template <typename T>
void LoadOnIo(FileSystem& fs, Executor& io, Executor& owner, const std::string& path,
              const char* storeName, std::weak_ptr<bool> alive,
              std::function<void(std::vector<T>)> arrive) {
  io.post([&fs, &owner, path, storeName, alive = std::move(alive), arrive = std::move(arrive)] {
    std::vector<T> list;
    if (auto loaded = LoadList<T>(fs, path)) {
      list = std::move(*loaded);
    } else {
      log::error(kLogArea, "%s load failed: %s", storeName, loaded.error().message().c_str());
    }
    owner.post([alive, arrive, list = std::move(list)]() mutable {
      if (alive.lock()) arrive(std::move(list));
    });
  });
}

// The list read from the file, followed by what was added before it arrived.
template <typename T>
void Arrived(std::vector<T>& list, std::vector<T> loaded) {
  loaded.insert(loaded.end(), std::make_move_iterator(list.begin()),
                std::make_move_iterator(list.end()));
  list = std::move(loaded);
}

// Encodes now and writes on `io`, so the list can change again at once.
template <typename T>
void SaveList(FileSystem& fs, Executor& io, const std::string& folder, const std::string& path,
              const std::vector<T>& list, const char* storeName) {
  auto text = EncodeList(list);
  if (!text) {
    log::error(kLogArea, "%s save failed: %s", storeName, text.error().message().c_str());
    return;
  }
  io.post([&fs, folder, path, text = std::move(*text), storeName] {
    Status s = fs.createDirectories(folder);
    if (s.ok()) s = fs.writeFileAtomically(path, text);
    if (!s.ok()) log::error(kLogArea, "%s save failed: %s", storeName, s.message().c_str());
  });
}

std::string Trimmed(std::string text) {
  auto blank = [](unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  while (!text.empty() && blank(text.back())) text.pop_back();
  size_t start = 0;
  while (start < text.size() && blank(text[start])) ++start;
  return text.substr(start);
}

template <typename T>
T* FindById(std::vector<T>& list, const UUID& id) {
  auto it = std::find_if(list.begin(), list.end(), [&id](const T& t) { return t.id == id; });
  return it == list.end() ? nullptr : &*it;
}

}  // namespace

MarkupSignatureStore::MarkupSignatureStore(FileSystem& fs, Executor& io, Executor& owner,
                                           const std::string& rootFolder, Clock& clock)
    : fs_(fs), io_(io), clock_(clock), root_(rootFolder), fileURL_(joinPath(rootFolder, kFileName)) {
  LoadOnIo<MarkupSignature>(fs_, io_, owner, fileURL_, "MarkupSignatureStore", alive_,
                            [this](std::vector<MarkupSignature> loaded) {
                              Arrived(signatures_, std::move(loaded));
                              loaded_ = true;
                              if (saveWhenLoaded_) save();
                            });
}

std::optional<MarkupSignature> MarkupSignatureStore::signature(const UUID& id) const {
  for (const auto& s : signatures_) {
    if (s.id == id) return s;
  }
  return std::nullopt;
}

std::optional<MarkupSignature> MarkupSignatureStore::add(std::vector<SignatureStroke> strokes,
                                                         std::string name) {
  MarkupSignature signature{UUID::Random(), Trimmed(std::move(name)), std::move(strokes), 1,
                            clock_.now()};
  bool any = false;
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
  for (const auto& stroke : signature.strokes) {
    for (const Point& p : stroke.points) {
      if (!std::isfinite(p.x) || !std::isfinite(p.y)) return std::nullopt;
      if (!any) minX = maxX = p.x, minY = maxY = p.y, any = true;
      minX = std::min(minX, p.x), maxX = std::max(maxX, p.x);
      minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
    }
  }
  if (!any) return std::nullopt;
  if (maxY - minY > 0) signature.aspectRatio = std::max(maxX - minX, 1.0) / (maxY - minY);
  signatures_.push_back(signature);
  save();
  return signature;
}

bool MarkupSignatureStore::rename(const UUID& id, std::string name) {
  MarkupSignature* signature = FindById(signatures_, id);
  if (!signature) return false;
  signature->name = Trimmed(std::move(name));
  save();
  return true;
}

bool MarkupSignatureStore::remove(const UUID& id) {
  auto it = std::find_if(signatures_.begin(), signatures_.end(),
                         [&id](const MarkupSignature& s) { return s.id == id; });
  if (it == signatures_.end()) return false;
  signatures_.erase(it);
  save();
  return true;
}

void MarkupSignatureStore::save() {
  // An earlier write would replace the file with only the changes.
  saveWhenLoaded_ = !loaded_;
  if (!loaded_) return;
  SaveList(fs_, io_, root_, fileURL_, signatures_, "MarkupSignatureStore");
}

MarkupWatermarkStore::MarkupWatermarkStore(FileSystem& fs, ImageCodec& codec, Executor& io,
                                           Executor& owner, const std::string& rootFolder,
                                           Clock& clock)
    : fs_(fs),
      codec_(codec),
      io_(io),
      clock_(clock),
      root_(rootFolder),
      indexURL_(joinPath(rootFolder, kIndexName)),
      imagesDir_(joinPath(rootFolder, kImagesFolder)) {
  LoadOnIo<MarkupWatermarkStamp>(fs_, io_, owner, indexURL_, "MarkupWatermarkStore", alive_,
                                 [this](std::vector<MarkupWatermarkStamp> loaded) {
                                   Arrived(stamps_, std::move(loaded));
                                   loaded_ = true;
                                   if (saveWhenLoaded_) save();
                                 });
}

std::string MarkupWatermarkStore::imagePath(const UUID& id) const {
  return joinPath(imagesDir_, id.uuidString() + ".png");
}

std::optional<MarkupWatermarkStamp> MarkupWatermarkStore::stamp(const UUID& id) const {
  for (const auto& s : stamps_) {
    if (s.id == id) return s;
  }
  return std::nullopt;
}

std::optional<MarkupWatermarkStamp> MarkupWatermarkStore::add(const PixelImage& image,
                                                              std::string name) {
  name = Trimmed(std::move(name));
  if (name.empty()) name = kDefaultName;
  MarkupWatermarkStamp stamp{UUID::Random(), std::move(name), 1, clock_.now()};
  auto png = codec_.encodePng(image);
  Status written = png ? fs_.createDirectories(imagesDir_) : Status(png.error());
  if (written.ok()) written = fs_.writeFileAtomically(imagePath(stamp.id), *png);
  if (!written.ok()) {
    log::error(kLogArea, "MarkupWatermarkStore add: PNG write failed: %s",
               written.message().c_str());
    return std::nullopt;
  }
  stamp.aspectRatio = static_cast<double>(image.width) / image.height;
  stamps_.push_back(stamp);
  save();
  return stamp;
}

bool MarkupWatermarkStore::rename(const UUID& id, std::string name) {
  MarkupWatermarkStamp* stamp = FindById(stamps_, id);
  if (!stamp) return false;
  name = Trimmed(std::move(name));
  stamp->name = name.empty() ? kDefaultName : name;
  save();
  return true;
}

bool MarkupWatermarkStore::remove(const UUID& id) {
  auto it = std::find_if(stamps_.begin(), stamps_.end(),
                         [&id](const MarkupWatermarkStamp& s) { return s.id == id; });
  if (it == stamps_.end()) return false;
  stamps_.erase(it);
  imageCache_.erase(id);
  io_.post([&fs = fs_, path = imagePath(id)] {
    if (Status s = fs.removeFile(path); !s.ok() && fs.exists(path)) {
      log::error(kLogArea, "MarkupWatermarkStore delete: %s", s.message().c_str());
    }
  });
  save();
  return true;
}

void MarkupWatermarkStore::save() {
  saveWhenLoaded_ = !loaded_;
  if (!loaded_) return;
  SaveList(fs_, io_, root_, indexURL_, stamps_, "MarkupWatermarkStore");
}

std::shared_ptr<const PixelImage> MarkupWatermarkStore::image(const UUID& id) {
  if (auto it = imageCache_.find(id); it != imageCache_.end()) return it->second;
  if (!stamp(id)) return nullptr;
  auto bytes = fs_.readFile(imagePath(id));
  if (!bytes) return nullptr;
  auto pixels = codec_.decodePixels(*bytes, {PixelDecodeOptions::Format::rgba, 0});
  if (!pixels) return nullptr;
  auto image = std::make_shared<const PixelImage>(std::move(*pixels));
  imageCache_.emplace(id, image);
  return image;
}

}  // namespace klipora::markup
