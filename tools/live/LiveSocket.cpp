#include "live/LiveSocket.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "VirtualBoard.h"

namespace tool::live {
namespace {

constexpr const char* kOfTheSystem = "/run/tessaline/serve.sock";

std::string OfTheUser() {
  const std::string runtime = Environment("XDG_RUNTIME_DIR");
  if (!runtime.empty()) return runtime + "/tessaline/serve.sock";
  return fmt::format("/tmp/tessaline-{}/serve.sock", geteuid());
}

}  // namespace

bool IsOurs(const std::string& folder) {
  struct stat info {};
  return lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid() &&
         (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string SocketPath() {
  const std::string chosen = Environment("TESSALINE_SOCKET");
  if (!chosen.empty()) return chosen;
  const bool service = !Environment("RUNTIME_DIRECTORY").empty();  // as systemd says
  return service || geteuid() == 0 ? kOfTheSystem : OfTheUser();
}

std::vector<std::string> SocketPaths() {
  const std::string chosen = Environment("TESSALINE_SOCKET");
  if (!chosen.empty()) return {chosen};
  // Others may write where users have theirs.
  const bool ours = geteuid() != 0 && IsOurs(std::filesystem::path(OfTheUser()).parent_path());
  return ours ? std::vector{std::string(kOfTheSystem), OfTheUser()}
              : std::vector{std::string(kOfTheSystem)};
}

int Connect(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return -1;
  std::memcpy(address.sun_path, path.data(), path.size());
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return -1;
  if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return socket;
  }
  close(socket);
  return -1;
}

std::optional<pid_t> ProcessBehind(const std::string& path) {
  const int socket = Connect(path);
  if (socket < 0) return std::nullopt;
  ucred peer{};
  socklen_t size = sizeof peer;
  const bool known = getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
  close(socket);
  if (!known) return std::nullopt;
  return peer.pid;
}

}  // namespace tool::live
