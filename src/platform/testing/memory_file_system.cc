#include "platform/testing/memory_file_system.h"

#include <algorithm>

namespace klipora::testing {

MemoryFileSystem::MemoryFileSystem() { directories_.insert("/"); }

Status MemoryFileSystem::checkParentWritable(const std::string& path) const {
  std::string parent = deletingLastPathComponent(path);
  if (!directories_.count(parent)) return Status::NotFound("no folder " + parent);
  if (readOnly_.count(parent))
    return Status::PermissionDenied("folder " + parent + " is read-only");
  return Status::Ok();
}

Result<std::string> MemoryFileSystem::readFile(const std::string& path) {
  std::lock_guard lock(mutex_);
  if (directories_.count(path)) return Err(Status::InvalidArgument(path + ": it is a folder"));
  auto it = files_.find(path);
  if (it == files_.end()) return Err(Status::NotFound("open " + path + ": No such file"));
  return it->second.data;
}

StreamedCopy MemoryFileSystem::copyStreaming(
    const std::string& from, const std::string& to,
    const std::function<Status(std::string_view chunk)>& eachChunk) {
  StreamedCopy result;
  std::string data;
  {
    std::lock_guard lock(mutex_);
    if (directories_.count(from)) {
      result.sourceError = Status::InvalidArgument(from + ": it is a folder");
      return result;
    }
    auto it = files_.find(from);
    if (it == files_.end()) {
      result.sourceError = Status::NotFound("open " + from + ": No such file");
      return result;
    }
    data = it->second.data;
    result.destinationError = checkParentWritable(to);
    if (result.destinationError.ok() && (files_.count(to) || directories_.count(to))) {
      result.destinationError = Status::AlreadyExists(to);
    }
    if (!result.ok()) return result;
  }
  for (size_t at = 0; at < data.size() && result.ok(); at += kCopyChunkSize) {
    result.sourceError = eachChunk(std::string_view(data).substr(at, kCopyChunkSize));
  }
  if (!result.ok()) return result;
  result.destinationError = writeNewFile(to, data);
  if (result.ok()) result.size = static_cast<int64_t>(data.size());
  return result;
}

Result<std::string> MemoryFileSystem::readFileRange(const std::string& path, int64_t offset,
                                                    int64_t length) {
  ASSIGN_OR_RETURN(std::string data, readFile(path));
  const int64_t size = static_cast<int64_t>(data.size());
  if (offset < 0) offset = std::max<int64_t>(0, size + offset);
  if (offset >= size || length <= 0) return std::string();
  return data.substr(static_cast<size_t>(offset), static_cast<size_t>(length));
}

Result<std::string> MemoryFileSystem::resolvingSymlinks(const std::string& path) {
  std::lock_guard lock(mutex_);
  if (!files_.count(path) && !directories_.count(path)) {
    return Err(Status::NotFound("resolve " + path + ": No such file"));
  }
  return path;
}

Status MemoryFileSystem::writeNewFile(const std::string& path, std::string_view data) {
  std::lock_guard lock(mutex_);
  RETURN_IF_ERROR(checkParentWritable(path));
  if (files_.count(path) || directories_.count(path)) return Status::AlreadyExists(path);
  files_[path] = File{std::string(data), {}, {}, {}};
  written.push_back(path);
  return Status::Ok();
}

Status MemoryFileSystem::writeFileAtomically(const std::string& path, std::string_view data) {
  std::lock_guard lock(mutex_);
  RETURN_IF_ERROR(checkParentWritable(path));
  files_[path].data = std::string(data);
  written.push_back(path);
  return Status::Ok();
}

Status MemoryFileSystem::copyFile(const std::string& from, const std::string& to) {
  std::lock_guard lock(mutex_);
  ASSIGN_OR_RETURN(std::string data, readFile(from));
  return writeNewFile(to, data);
}

Status MemoryFileSystem::removeFile(const std::string& path) {
  std::lock_guard lock(mutex_);
  if (!files_.erase(path)) return Status::NotFound("remove " + path + ": No such file");
  removed.push_back(path);
  return Status::Ok();
}

Status MemoryFileSystem::rename(const std::string& from, const std::string& to) {
  std::lock_guard lock(mutex_);
  auto it = files_.find(from);
  if (it == files_.end()) return Status::NotFound("rename " + from + ": No such file");
  RETURN_IF_ERROR(checkParentWritable(to));
  File f = std::move(it->second);
  files_.erase(it);
  files_[to] = std::move(f);
  return Status::Ok();
}

Status MemoryFileSystem::createDirectories(const std::string& path) {
  std::lock_guard lock(mutex_);
  if (directories_.count(path)) return Status::Ok();
  if (files_.count(path)) return Status::AlreadyExists(path + " exists and is not a folder");
  std::string parent = deletingLastPathComponent(path);
  if (!parent.empty() && parent != path) RETURN_IF_ERROR(createDirectories(parent));
  if (readOnly_.count(parent)) return Status::PermissionDenied("create folder " + path);
  directories_.insert(path);
  return Status::Ok();
}

Result<FileAttributes> MemoryFileSystem::attributes(const std::string& path) {
  std::lock_guard lock(mutex_);
  FileAttributes a;
  if (directories_.count(path)) {
    a.isDirectory = true;
    return a;
  }
  auto it = files_.find(path);
  if (it == files_.end()) return Err(Status::NotFound("stat " + path + ": No such file"));
  a.isRegularFile = true;
  a.size = static_cast<int64_t>(it->second.data.size());
  if (it->second.birth.timeIntervalSince1970() != 0) a.birthTime = it->second.birth;
  a.changeTime = a.modificationTime = it->second.modified;
  return a;
}

bool MemoryFileSystem::exists(const std::string& path) {
  std::lock_guard lock(mutex_);
  return files_.count(path) || directories_.count(path);
}

bool MemoryFileSystem::isWritableDirectory(const std::string& path) {
  std::lock_guard lock(mutex_);
  return directories_.count(path) && !readOnly_.count(path);
}

Result<std::vector<std::string>> MemoryFileSystem::listDirectory(const std::string& path) {
  std::lock_guard lock(mutex_);
  if (!directories_.count(path)) return Err(Status::NotFound("list " + path));
  std::vector<std::string> names;
  for (const auto& [p, f] : files_) {
    if (deletingLastPathComponent(p) == path) names.push_back(lastPathComponent(p));
  }
  for (const auto& d : directories_) {
    if (d != path && deletingLastPathComponent(d) == path) names.push_back(lastPathComponent(d));
  }
  return names;
}

Status MemoryFileSystem::removeExtendedAttribute(const std::string& path, const std::string& name) {
  std::lock_guard lock(mutex_);
  auto it = files_.find(path);
  if (it == files_.end()) return Status::NotFound(path);
  it->second.xattrs.erase(name);
  return Status::Ok();
}

Result<std::string> MemoryFileSystem::extendedAttribute(const std::string& path,
                                                        const std::string& name) {
  std::lock_guard lock(mutex_);
  auto it = files_.find(path);
  if (it == files_.end()) return Err(Status::NotFound(path));
  auto x = it->second.xattrs.find(name);
  if (x == it->second.xattrs.end()) return Err(Status::NotFound(name));
  return x->second;
}

Result<VolumeCapacity> MemoryFileSystem::volumeCapacity(const std::string&) { return capacity_; }

void MemoryFileSystem::addFile(const std::string& path, std::string data, Date birth) {
  std::lock_guard lock(mutex_);
  (void)createDirectories(deletingLastPathComponent(path));
  files_[path] = File{std::move(data), birth, birth, {}};
}

void MemoryFileSystem::removeTree(const std::string& path) {
  std::lock_guard lock(mutex_);
  auto inside = [&](const std::string& p) { return p == path || p.starts_with(path + "/"); };
  std::erase_if(files_, [&](const auto& entry) { return inside(entry.first); });
  std::erase_if(directories_, inside);
}

void MemoryFileSystem::setExtendedAttribute(const std::string& path, const std::string& name,
                                            std::string value) {
  std::lock_guard lock(mutex_);
  files_[path].xattrs[name] = std::move(value);
}

void MemoryFileSystem::setReadOnlyDirectory(const std::string& path, bool readOnly) {
  std::lock_guard lock(mutex_);
  if (readOnly) {
    readOnly_.insert(path);
  } else {
    readOnly_.erase(path);
  }
}

std::vector<std::string> MemoryFileSystem::filesUnder(const std::string& folder) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  std::string prefix = folder.back() == '/' ? folder : folder + "/";
  for (const auto& [p, f] : files_) {
    if (p.rfind(prefix, 0) == 0) out.push_back(p);
  }
  return out;
}

void FaultInjectingFileSystem::failWhen(Op op, std::string pathFragment, Status status) {
  std::lock_guard lock(mutex_);
  faults_.push_back(Fault{op, std::move(pathFragment), std::move(status)});
}

void FaultInjectingFileSystem::beforeCall(Op op, std::function<void(const std::string&)> hook) {
  std::lock_guard lock(mutex_);
  hooks_[op] = std::move(hook);
}

void FaultInjectingFileSystem::clearFaults() {
  std::lock_guard lock(mutex_);
  faults_.clear();
  hooks_.clear();
}

Status FaultInjectingFileSystem::check(Op op, const std::string& path) {
  std::function<void(const std::string&)> hook;
  {
    std::lock_guard lock(mutex_);
    for (const auto& f : faults_) {
      if (f.op == op && path.find(f.fragment) != std::string::npos) return f.status;
    }
    auto it = hooks_.find(op);
    if (it != hooks_.end()) hook = it->second;
  }
  if (hook) hook(path);
  return Status::Ok();
}

Result<std::string> FaultInjectingFileSystem::readFile(const std::string& path) {
  RETURN_IF_ERROR(check(Op::kRead, path));
  return base_.readFile(path);
}
StreamedCopy FaultInjectingFileSystem::copyStreaming(
    const std::string& from, const std::string& to,
    const std::function<Status(std::string_view chunk)>& eachChunk) {
  StreamedCopy result;
  result.sourceError = check(Op::kRead, from);
  if (result.ok()) result.destinationError = check(Op::kWriteNew, to);
  if (!result.ok()) return result;
  return base_.copyStreaming(from, to, eachChunk);
}
Status FaultInjectingFileSystem::writeNewFile(const std::string& path, std::string_view data) {
  RETURN_IF_ERROR(check(Op::kWriteNew, path));
  return base_.writeNewFile(path, data);
}
Status FaultInjectingFileSystem::writeFileAtomically(const std::string& path,
                                                     std::string_view data) {
  RETURN_IF_ERROR(check(Op::kWriteAtomically, path));
  return base_.writeFileAtomically(path, data);
}
Status FaultInjectingFileSystem::copyFile(const std::string& from, const std::string& to) {
  RETURN_IF_ERROR(check(Op::kCopy, to));
  return base_.copyFile(from, to);
}
Status FaultInjectingFileSystem::removeFile(const std::string& path) {
  RETURN_IF_ERROR(check(Op::kRemove, path));
  return base_.removeFile(path);
}
Status FaultInjectingFileSystem::rename(const std::string& from, const std::string& to) {
  RETURN_IF_ERROR(check(Op::kRename, to));
  return base_.rename(from, to);
}
Status FaultInjectingFileSystem::createDirectories(const std::string& path) {
  RETURN_IF_ERROR(check(Op::kCreateDirectories, path));
  return base_.createDirectories(path);
}
Result<FileAttributes> FaultInjectingFileSystem::attributes(const std::string& path) {
  RETURN_IF_ERROR(check(Op::kAttributes, path));
  return base_.attributes(path);
}
Status FaultInjectingFileSystem::removeExtendedAttribute(const std::string& path,
                                                         const std::string& name) {
  RETURN_IF_ERROR(check(Op::kRemoveXattr, path));
  return base_.removeExtendedAttribute(path, name);
}
Result<VolumeCapacity> FaultInjectingFileSystem::volumeCapacity(const std::string& path) {
  RETURN_IF_ERROR(check(Op::kCapacity, path));
  return base_.volumeCapacity(path);
}

}  // namespace klipora::testing
