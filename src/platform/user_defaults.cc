#include "platform/user_defaults.h"

#include <nlohmann/json.hpp>

#include "platform/log.h"

namespace klipora {

struct UserDefaults::Values {
  nlohmann::json object = nlohmann::json::object();
};

UserDefaults::UserDefaults(FileSystem& fs, std::string path)
    : fs_(fs), path_(std::move(path)), values_(std::make_unique<Values>()) {}

UserDefaults::~UserDefaults() = default;

Status UserDefaults::load() {
  std::lock_guard lock(mutex_);
  values_->object = nlohmann::json::object();
  corruptFileOnDisk_ = false;
  auto bytes = fs_.readFile(path_);
  if (!bytes) {
    if (bytes.error().code() == Status::Code::kNotFound) return Status::Ok();
    return bytes.error();
  }
  auto parsed = nlohmann::json::parse(*bytes, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded() || !parsed.is_object()) {
    corruptFileOnDisk_ = true;
    log::error("Defaults", "%s is not a JSON object; using empty defaults", path_.c_str());
    return Status::Corruption("user defaults file " + path_ + " is not a JSON object");
  }
  values_->object = std::move(parsed);
  return Status::Ok();
}

bool UserDefaults::boolForKey(const std::string& key) const {
  return optionalBool(key).value_or(false);
}

std::optional<bool> UserDefaults::optionalBool(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = values_->object.find(key);
  if (it == values_->object.end() || !it->is_boolean()) return std::nullopt;
  return it->get<bool>();
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = values_->object.find(key);
  if (it == values_->object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::optional<double> UserDefaults::doubleForKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  auto it = values_->object.find(key);
  if (it == values_->object.end() || !it->is_number()) return std::nullopt;
  return it->get<double>();
}

std::vector<std::string> UserDefaults::stringListForKey(const std::string& key) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  auto it = values_->object.find(key);
  if (it == values_->object.end() || !it->is_array()) return out;
  for (const auto& element : *it) {
    if (element.is_string()) out.push_back(element.get<std::string>());
  }
  return out;
}

Status UserDefaults::setBool(const std::string& key, bool value) {
  std::lock_guard lock(mutex_);
  values_->object[key] = value;
  return writeLocked();
}

Status UserDefaults::setString(const std::string& key, const std::string& value) {
  std::lock_guard lock(mutex_);
  values_->object[key] = value;
  return writeLocked();
}

Status UserDefaults::setDouble(const std::string& key, double value) {
  std::lock_guard lock(mutex_);
  values_->object[key] = value;
  return writeLocked();
}

Status UserDefaults::setStringList(const std::string& key,
                                   const std::vector<std::string>& value) {
  std::lock_guard lock(mutex_);
  values_->object[key] = value;
  return writeLocked();
}

Status UserDefaults::removeObject(const std::string& key) {
  std::lock_guard lock(mutex_);
  values_->object.erase(key);
  return writeLocked();
}

Status UserDefaults::writeLocked() {
  if (corruptFileOnDisk_) {
    for (int n = 1; n < 1000; ++n) {
      std::string aside = path_ + ".corrupt-" + std::to_string(n);
      if (fs_.exists(aside)) continue;
      RETURN_IF_ERROR(fs_.rename(path_, aside));
      log::warning("Defaults", "kept the unreadable defaults file as %s", aside.c_str());
      break;
    }
    corruptFileOnDisk_ = false;
  }
  RETURN_IF_ERROR(fs_.createDirectories(deletingLastPathComponent(path_)));
  return fs_.writeFileAtomically(path_, values_->object.dump(2, ' ', false,
                                                             nlohmann::json::error_handler_t::replace) +
                                            "\n");
}

}  // namespace klipora
