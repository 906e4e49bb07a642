#include "daemon/engine/restic/program/SftpCommand.h"

#include <string_view>

namespace keldane {
namespace {

/// Whether a name needs no quoting and cannot be taken for an option.
bool isPlain(std::string_view name) {
  return !name.empty() && name.front() != '-' &&
         name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-@") ==
             std::string_view::npos;
}

}  // namespace

std::optional<std::string> sftpCommand(const std::string& location) {
  constexpr std::string_view kScheme = "sftp:";
  std::string_view server = location;
  if (!server.starts_with(kScheme)) {
    return std::nullopt;
  }
  server.remove_prefix(kScheme.size());
  std::string_view port;
  if (server.starts_with("//")) {
    server = server.substr(2, server.find('/', 2) - 2);
    if (const std::size_t colon = server.rfind(':'); colon != std::string_view::npos) {
      port = server.substr(colon + 1);
      server = server.substr(0, colon);
    }
  } else {
    server = server.substr(0, server.find(':'));
  }
  if (!isPlain(server) || (!port.empty() && !isPlain(port))) {
    return std::nullopt;
  }
  std::string command =
      "ssh -o BatchMode=yes -o ConnectTimeout=30 -o ServerAliveInterval=20 -o ServerAliveCountMax=3 ";
  if (!port.empty()) {
    command.append("-p ").append(port).append(" ");
  }
  return command.append(server).append(" -s sftp");
}

}  // namespace keldane
