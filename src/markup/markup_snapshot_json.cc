#include "markup/markup_snapshot_json.h"

#include <exception>
#include <unordered_set>

#include "markup/markup_json_coding.h"

namespace klipora::markup {
namespace {

using json_coding::Decoder;
using json_coding::Encoder;
using json_coding::Json;
using json_coding::Path;

// The snapshot's own fields, in order, for writing. Reading (DecodeInto) keeps
// a list of its own because absent keys there take defaults or fail.
template <typename S, typename V>
void visitSnapshotFields(S& s, V& v) {
  v("version", s.version), v("sourceItemID", s.sourceItemID);
  v("sourceImageWidth", s.sourceImageWidth), v("sourceImageHeight", s.sourceImageHeight);
  v("createdAt", s.createdAt), v("inkStrokes", s.inkStrokes), v("shapes", s.shapes);
  v("textBoxes", s.textBoxes), v("effects", s.effects), v("signatures", s.signatures);
  v("magnifiers", s.magnifiers), v("spotlights", s.spotlights), v("stepBadges", s.stepBadges);
  v("emojiStamps", s.emojiStamps), v("cutouts", s.cutouts), v("rulers", s.rulers);
  v("crop", s.crop), v("transform", s.transform), v("perspective", s.perspective);
  v("background", s.background), v("chrome", s.chrome);
  v("canvasExtension", s.canvasExtension), v("watermarks", s.watermarks);
  v("layerOrder", s.layerOrder), v("colorAdjustments", s.colorAdjustments);
  v("backgroundRemoval", s.backgroundRemoval), v("lockedLayers", s.lockedLayers);
  v("renderedFileSize", s.renderedFileSize), v("renderedFileModified", s.renderedFileModified);
}

// Two layers of one family with one id would make a LayerRef name both.
template <typename Layers>
bool CheckUniqueIds(Decoder& d, const Path& root, const char* key, const Layers& layers) {
  std::unordered_set<UUID> seen;
  seen.reserve(layers.size());
  for (size_t i = 0; i < layers.size(); ++i) {
    if (!seen.insert(layers[i].id).second) {
      Path family{&root, key};
      return d.fail(Path{&family, nullptr, i}, "duplicate layer id " + layers[i].id.uuidString());
    }
  }
  return true;
}

Status DecodeInto(const Json& object, MarkupDocumentSnapshot& s) {
  Decoder d;
  Path root;
  if (!object.is_object()) return Status::Corruption("expected a JSON object");
  auto required = [&](const char* key, auto& field) { d.getField(object, root, key, field); };
  auto optional = [&](const char* key, auto& field) {
    std::optional<std::remove_reference_t<decltype(field)>> value;
    d.getField(object, root, key, value);
    if (value) field = std::move(*value);
  };
  s.version = 1;  // the files written before the field existed
  optional("version", s.version);
  required("sourceItemID", s.sourceItemID);
  required("sourceImageWidth", s.sourceImageWidth);
  required("sourceImageHeight", s.sourceImageHeight);
  required("createdAt", s.createdAt);
  required("inkStrokes", s.inkStrokes);
  required("shapes", s.shapes);
  required("textBoxes", s.textBoxes);
  required("effects", s.effects);
  required("signatures", s.signatures);
  optional("magnifiers", s.magnifiers);
  optional("spotlights", s.spotlights);
  optional("stepBadges", s.stepBadges);
  optional("emojiStamps", s.emojiStamps);
  optional("cutouts", s.cutouts);
  optional("rulers", s.rulers);
  d.getField(object, root, "crop", s.crop);
  required("transform", s.transform);
  d.getField(object, root, "perspective", s.perspective);
  d.getField(object, root, "background", s.background);
  d.getField(object, root, "chrome", s.chrome);
  d.getField(object, root, "canvasExtension", s.canvasExtension);
  optional("watermarks", s.watermarks);
  d.getField(object, root, "layerOrder", s.layerOrder);
  d.getField(object, root, "colorAdjustments", s.colorAdjustments);
  d.getField(object, root, "backgroundRemoval", s.backgroundRemoval);
  optional("lockedLayers", s.lockedLayers);
  d.getField(object, root, "renderedFileSize", s.renderedFileSize);
  d.getField(object, root, "renderedFileModified", s.renderedFileModified);
  if (!d.status.ok()) return d.status;

  if (s.sourceImageWidth < 0 || s.sourceImageHeight < 0) {
    return Status::Corruption("negative source image size");
  }
  bool unique = CheckUniqueIds(d, root, "inkStrokes", s.inkStrokes) &&
                CheckUniqueIds(d, root, "shapes", s.shapes) &&
                CheckUniqueIds(d, root, "textBoxes", s.textBoxes) &&
                CheckUniqueIds(d, root, "effects", s.effects) &&
                CheckUniqueIds(d, root, "signatures", s.signatures) &&
                CheckUniqueIds(d, root, "magnifiers", s.magnifiers) &&
                CheckUniqueIds(d, root, "spotlights", s.spotlights) &&
                CheckUniqueIds(d, root, "stepBadges", s.stepBadges) &&
                CheckUniqueIds(d, root, "emojiStamps", s.emojiStamps) &&
                CheckUniqueIds(d, root, "cutouts", s.cutouts) &&
                CheckUniqueIds(d, root, "rulers", s.rulers) &&
                CheckUniqueIds(d, root, "watermarks", s.watermarks);
  return unique ? Status::Ok() : d.status;
}

}  // namespace

Result<std::string> encodeSnapshot(const MarkupDocumentSnapshot& snapshot) {
  // nlohmann::json throws only on allocation failure here; keep it inside.
  try {
    Encoder e;
    Json out = Json::object();
    auto put = [&e, &out](const char* key, const auto& field) { e.putField(out, key, field); };
    visitSnapshotFields(snapshot, put);
    if (!e.allFinite) {
      return Err(Status::InvalidArgument(
          "the markup document holds a number that is not finite (NaN or infinity)"));
    }
    // Invalid UTF-8 in a text box is replaced rather than refused.
    return out.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  } catch (const std::exception& e) {
    return Err(Status::Internal(std::string("cannot encode the markup snapshot: ") + e.what()));
  }
}

Result<MarkupDocumentSnapshot> decodeSnapshot(std::string_view text) {
  if (text.size() > kMaxSnapshotBytes) {
    return Err(Status::Corruption("snapshot of " + std::to_string(text.size()) +
                                  " bytes is larger than the limit of " +
                                  std::to_string(kMaxSnapshotBytes)));
  }
  try {
    Json root = Json::parse(text.begin(), text.end(), nullptr, /*allow_exceptions=*/false);
    if (root.is_discarded()) return Err(Status::Corruption("not valid JSON"));
    MarkupDocumentSnapshot snapshot;
    RETURN_IF_ERROR(DecodeInto(root, snapshot));
    return snapshot;
  } catch (const std::exception& e) {
    return Err(Status::Corruption(std::string("cannot decode the markup snapshot: ") + e.what()));
  }
}

Result<MarkupDocumentSnapshot> readSnapshotFile(FileSystem& fs, const std::string& path) {
  ASSIGN_OR_RETURN(FileAttributes attributes, fs.attributes(path));
  if (attributes.size < 0 || static_cast<uint64_t>(attributes.size) > kMaxSnapshotBytes) {
    return Err(Status::Corruption(path + ": " + std::to_string(attributes.size) +
                                  " bytes is larger than a markup snapshot may be"));
  }
  ASSIGN_OR_RETURN(std::string text, fs.readFile(path));
  auto snapshot = decodeSnapshot(text);
  if (!snapshot) return Err(snapshot.error().WithContext(path));
  return snapshot;
}

Status writeSnapshotFile(FileSystem& fs, const std::string& path,
                         const MarkupDocumentSnapshot& snapshot) {
  ASSIGN_OR_RETURN(std::string text, encodeSnapshot(snapshot));
  return fs.writeFileAtomically(path, text);
}

}  // namespace klipora::markup
