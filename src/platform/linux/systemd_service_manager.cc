#include "platform/linux/systemd_service_manager.h"

#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "platform/file_system.h"

extern char** environ;

namespace klipora {
namespace {

std::string wantsLink(const std::string& unitPath) {
  return joinPath(joinPath(deletingLastPathComponent(unitPath), "default.target.wants"),
                  lastPathComponent(unitPath));
}

std::string trimmedLine(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

}  // namespace

SystemdServiceManager::SystemdServiceManager(std::function<const char*(const char*)> getenv)
    : getenv_(std::move(getenv)) {}

void SystemdServiceManager::notify(std::string_view state) {
  const char* socketPath = getenv_("NOTIFY_SOCKET");
  if (!socketPath || (socketPath[0] != '/' && socketPath[0] != '@')) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t length = std::strlen(socketPath);
  if (length >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, socketPath, length);
  if (address.sun_path[0] == '@') address.sun_path[0] = '\0';  // abstract namespace
  int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  (void)::sendto(fd, state.data(), state.size(), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), size);
  ::close(fd);
}

bool SystemdServiceManager::managerRunning() const {
  std::string runtime;
  if (const char* dir = getenv_("XDG_RUNTIME_DIR"); dir && *dir) {
    runtime = dir;
  } else {
    runtime = "/run/user/" + std::to_string(::getuid());
  }
  struct stat s{};
  return ::stat(joinPath(joinPath(runtime, "systemd"), "private").c_str(), &s) == 0 &&
         S_ISSOCK(s.st_mode);
}

Result<SystemdServiceManager::Outcome> SystemdServiceManager::systemctl(
    const std::vector<std::string>& args) const {
  std::vector<std::string> words = {"systemctl", "--user"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  int pipeFds[2];
  if (::pipe2(pipeFds, O_CLOEXEC) != 0) return Err(Status::FromErrno(errno, "pipe"));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  pid_t pid = 0;
  int spawned = ::posix_spawnp(&pid, "systemctl", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[1]);
  if (spawned != 0) {
    ::close(pipeFds[0]);
    return Err(Status::FromErrno(spawned, "cannot run systemctl"));
  }
  Outcome outcome;
  char buffer[512];
  ssize_t n;
  while ((n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
    if (n > 0) outcome.output.append(buffer, static_cast<size_t>(n));
  }
  ::close(pipeFds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

Status SystemdServiceManager::enableUnit(const std::string& unitPath) {
  if (managerRunning()) {
    ASSIGN_OR_RETURN(auto reload, systemctl({"daemon-reload"}));
    ASSIGN_OR_RETURN(auto enable, systemctl({"enable", lastPathComponent(unitPath)}));
    if (enable.exitCode != 0) {
      return Status::Unavailable("systemctl --user enable failed: " + trimmedLine(enable.output));
    }
    (void)reload;
    return Status::Ok();
  }
  const std::string link = wantsLink(unitPath);
  const std::string folder = deletingLastPathComponent(link);
  if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
    return Status::FromErrno(errno, folder);
  }
  (void)::unlink(link.c_str());
  if (::symlink(unitPath.c_str(), link.c_str()) != 0) return Status::FromErrno(errno, link);
  return Status::Ok();
}

Status SystemdServiceManager::disableUnit(const std::string& unitPath) {
  if (managerRunning()) {
    ASSIGN_OR_RETURN(auto disable, systemctl({"disable", "--now", lastPathComponent(unitPath)}));
    if (disable.exitCode != 0) {
      return Status::Unavailable("systemctl --user disable failed: " +
                                 trimmedLine(disable.output));
    }
  }
  const std::string link = wantsLink(unitPath);
  if (::unlink(link.c_str()) != 0 && errno != ENOENT) return Status::FromErrno(errno, link);
  return Status::Ok();
}

UnitState SystemdServiceManager::unitState(const std::string& unitPath) {
  UnitState state;
  struct stat s{};
  state.enabled = ::lstat(wantsLink(unitPath).c_str(), &s) == 0;
  state.managerRunning = managerRunning();
  if (state.managerRunning) {
    if (auto active = systemctl({"is-active", lastPathComponent(unitPath)})) {
      state.activeState = trimmedLine(active->output);
    }
    if (auto enabled = systemctl({"is-enabled", lastPathComponent(unitPath)})) {
      state.enabled = enabled->exitCode == 0;
    }
  }
  return state;
}

}  // namespace klipora
