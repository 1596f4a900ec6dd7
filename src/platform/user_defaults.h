// UserDefaults: small key/value state kept outside the library, in one JSON
// object file (defaults.json beside the store): one-time repair flags, the
// import pause, the model endpoint, the text-recognition languages.
//
// Every setter writes the whole file atomically at once. A file that exists
// but is not a JSON object is reported by load() and treated as empty; before
// the first write replaces it, it is kept aside as "<file>.corrupt-<n>" so
// nothing the user had is lost.
//
// Thread rules: safe from any thread (one internal lock).
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/file_system.h"
#include "platform/status.h"

namespace klipora {

class UserDefaults {
 public:
  UserDefaults(FileSystem& fs, std::string path);
  ~UserDefaults();
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;

  // (Re)reads the file; a missing file is an empty set of defaults. Returns
  // Corruption, with the file's path in the message, for a malformed file.
  Status load();

  bool boolForKey(const std::string& key) const;  // false when absent
  std::optional<bool> optionalBool(const std::string& key) const;
  std::optional<std::string> stringForKey(const std::string& key) const;
  std::optional<double> doubleForKey(const std::string& key) const;
  std::vector<std::string> stringListForKey(const std::string& key) const;

  Status setBool(const std::string& key, bool value);
  Status setString(const std::string& key, const std::string& value);
  Status setDouble(const std::string& key, double value);
  Status setStringList(const std::string& key, const std::vector<std::string>& value);
  Status removeObject(const std::string& key);

  const std::string& path() const { return path_; }

 private:
  struct Values;
  Status writeLocked();

  FileSystem& fs_;
  const std::string path_;
  mutable std::mutex mutex_;
  std::unique_ptr<Values> values_;
  bool corruptFileOnDisk_ = false;
};

}  // namespace klipora
