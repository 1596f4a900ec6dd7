#include "ingestion/screenshot_evidence.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <memory>
#include <vector>

#include "intelligence/category_expression.h"

namespace klipora::ingestion {
namespace {

using intelligence::CategoryExpression;

// Each tool's default name without its extension. "\D{1,60}?" stands for
// the word "Screenshot" and its translations ("Bildschirmfoto vom",
// "Capture d'écran du"), which never hold digits.
constexpr std::array<std::string_view, 10> kToolNames = {
    // GNOME Shell and gnome-screenshot: "Screenshot From 2024-05-01 10-20-30",
    // "-1" on repeats.
    R"(^\D{1,60}\d{4}-\d{2}-\d{2} \d{2}-\d{2}-\d{2}(?:-\d+)?$)",
    // The original naming: "Screenshot 2024-05-01 at 10.20.30", and repeats.
    R"(^\D{1,60}\d{4}-\d{2}-\d{2} \D{1,12}\d{1,2}\.\d{2}\.\d{2})",
    // Spectacle: "Screenshot_20240501_102030"; not a camera's "IMG_…".
    R"(^(?!(?:IMG|VID|PXL|DSC|MVIMG)_)\D{1,60}_\d{8}_\d{6}(?:[-_]\d+)?$)",
    // Xfce: "Screenshot_2024-05-01_10-20-30".
    R"(^\D{1,60}_\d{4}-\d{2}-\d{2}_\d{2}-\d{2}-\d{2}(?:[-_]\d+)?$)",
    // Flameshot: "2024-05-01_10-20" (seconds and repeats in newer versions).
    R"(^\d{4}-\d{2}-\d{2}_\d{2}-\d{2}(?:-\d{2})?(?:_\d+)?$)",
    // ksnip: "ksnip_20240501-102030".
    R"(^ksnip_\d{8}-\d{6}(?:_\d+)?$)",
    // scrot: "2024-05-01-102030_1920x1080_scrot", "_000" on repeats.
    R"(^\d{4}-\d{2}-\d{2}-\d{6}_\d+x\d+_scrot(?:_\d+)?$)",
    // grim: "20240501_10h20m30s_grim".
    R"(^\d{8}_\d{2}h\d{2}m\d{2}s_grim$)",
    // hyprshot: "2024-05-01-102030_hyprshot".
    R"(^\d{4}-\d{2}-\d{2}-\d{6}_hyprshot$)",
    // Swappy: "swappy-20240501_102030".
    R"(^swappy-\d{8}[_-]\d{6}$)",
};

constexpr std::array<std::string_view, 8> kToolSoftware = {
    "gnome-screenshot",   "shutter", "spectacle", "flameshot", "ksnip", "scrot", "grim",
    "xfce4-screenshooter"};

std::string_view WithoutExtension(std::string_view name) {
  const size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

uint32_t BigEndian32(std::string_view bytes, size_t at) {
  return (uint32_t(uint8_t(bytes[at])) << 24) | (uint32_t(uint8_t(bytes[at + 1])) << 16) |
         (uint32_t(uint8_t(bytes[at + 2])) << 8) | uint32_t(uint8_t(bytes[at + 3]));
}

constexpr std::string_view kPngSignature{"\x89PNG\r\n\x1a\n", 8};
constexpr std::string_view kPngEnd{"\0\0\0\0IEND\xae\x42\x60\x82", 12};

bool ContainsToolName(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return std::any_of(kToolSoftware.begin(), kToolSoftware.end(),
                     [&](std::string_view tool) { return lower.find(tool) != std::string::npos; });
}

}  // namespace

bool looksLikeScreenshotName(std::string_view fileName) {
  static const auto* const expressions = [] {
    auto* list = new std::vector<std::unique_ptr<CategoryExpression>>;
    for (std::string_view pattern : kToolNames) {
      list->push_back(std::make_unique<CategoryExpression>(pattern));
    }
    return list;
  }();
  const std::string_view stem = WithoutExtension(fileName);
  return std::any_of(expressions->begin(), expressions->end(),
                     [&](const auto& e) { return e->search(stem); });
}

bool isTemporaryName(std::string_view fileName) {
  if (fileName.empty() || fileName.front() == '.') return true;
  if (fileName.front() == '#' && fileName.size() > 1 &&
      std::all_of(fileName.begin() + 1, fileName.end(), [](char c) { return std::isdigit(c); })) {
    return true;
  }
  // "shot.png.XXXXXX": an image extension followed by a random suffix.
  const size_t last = fileName.rfind('.');
  if (last == std::string_view::npos || last == 0) return false;
  const std::string_view suffix = fileName.substr(last + 1);
  const size_t previous = fileName.rfind('.', last - 1);
  return previous != std::string_view::npos && suffix.size() == 6 &&
         std::all_of(suffix.begin(), suffix.end(), [](char c) { return std::isalnum(c); }) &&
         last - previous - 1 >= 3 && last - previous - 1 <= 4;
}

bool pngNamesScreenshotTool(std::string_view head) {
  if (!head.starts_with(kPngSignature)) return false;
  size_t at = kPngSignature.size();
  while (at + 8 <= head.size()) {
    const uint32_t length = BigEndian32(head, at);
    const std::string_view type = head.substr(at + 4, 4);
    if (type == "IDAT" || type == "IEND") return false;
    if (at + 8 + length > head.size()) return false;
    const std::string_view data = head.substr(at + 8, length);
    if ((type == "tEXt" || type == "iTXt") && data.starts_with(std::string_view("Software\0", 9))) {
      return ContainsToolName(data.substr(9));
    }
    at += 12 + static_cast<size_t>(length);
  }
  return false;
}

Completeness completenessOf(std::string_view head, std::string_view tail) {
  if (head.starts_with(kPngSignature)) {
    return tail.ends_with(kPngEnd) ? Completeness::complete : Completeness::incomplete;
  }
  if (head.starts_with("\xff\xd8\xff")) {
    // Some encoders pad after the end-of-image marker.
    const size_t marker = tail.rfind("\xff\xd9");
    if (marker == std::string_view::npos) return Completeness::incomplete;
    const std::string_view after = tail.substr(marker + 2);
    return std::all_of(after.begin(), after.end(), [](char c) { return c == '\0'; })
               ? Completeness::complete
               : Completeness::incomplete;
  }
  return Completeness::undecided;
}

bool endMarkerIsConclusive(std::string_view head) { return head.starts_with(kPngSignature); }

}  // namespace klipora::ingestion
