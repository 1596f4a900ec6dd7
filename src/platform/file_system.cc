#include "platform/file_system.h"

namespace klipora {

std::string joinPath(std::string_view base, std::string_view name) {
  std::string out(base);
  if (out.empty() || out.back() != '/') out.push_back('/');
  while (!name.empty() && name.front() == '/') name.remove_prefix(1);
  out += name;
  return out;
}

std::string lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return std::string(path);
  if (path.size() == 1) return "/";
  return std::string(path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return "";
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string pathExtension(std::string_view path) {
  std::string name = lastPathComponent(path);
  size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot == 0) return "";
  return name.substr(dot + 1);
}

}  // namespace klipora
