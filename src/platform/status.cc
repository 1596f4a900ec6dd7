#include "platform/status.h"

#include <cerrno>
#include <cstring>

namespace klipora {

Status Status::FromErrno(int err, std::string_view context) {
  std::string message(context);
  message += ": ";
  message += std::strerror(err);
  switch (err) {
    case ENOENT:
    case ENOTDIR:
      return NotFound(std::move(message));
    case EACCES:
    case EPERM:
    case EROFS:
      return PermissionDenied(std::move(message));
    case ENOSPC:
    case EDQUOT:
      return NoSpace(std::move(message));
    case EEXIST:
      return AlreadyExists(std::move(message));
    case EINVAL:
      return InvalidArgument(std::move(message));
    default:
      return IoError(std::move(message));
  }
}

Status Status::WithContext(std::string_view context) const {
  if (ok()) return *this;
  std::string message(context);
  message += ": ";
  message += message_;
  return Status(code_, std::move(message));
}

}  // namespace klipora
