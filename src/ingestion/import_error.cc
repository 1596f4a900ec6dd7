#include "ingestion/import_error.h"

#include "platform/localization.h"

namespace klipora::ingestion {

bool SupportedImageTypes::contains(std::string_view lowerCasedExtension) {
  for (auto e : extensions) {
    if (e == lowerCasedExtension) return true;
  }
  return false;
}

std::string ImportError::errorDescription() const {
  switch (kind) {
    case Case::unsupportedFileType:
      return std::string(tr("Unsupported file type: ")) + extension;
    case Case::unreadableFile:
      return tr("Could not read the file.");
    case Case::duplicateScreenshot:
      return tr("This screenshot has already been imported.");
    case Case::fileSystem:
      return underlying.message();
  }
  return {};
}

}  // namespace klipora::ingestion
