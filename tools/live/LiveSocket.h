#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tool::live {

// Where "tessaline serve" listens for the other commands: TESSALINE_SOCKET, else the place of the
// system's service, or for ordinary users a folder of their own.
std::string SocketPath();

// The places where a daemon may be, the likeliest first.
std::vector<std::string> SocketPaths();

// Whether nobody but us can have put anything into a folder.
bool IsOurs(const std::string& folder);

// A connection to the daemon at a path; -1: there is none.
int Connect(const std::string& path);

// The daemon's process; nothing if there is no daemon.
std::optional<pid_t> ProcessBehind(const std::string& path);

}  // namespace tool::live
