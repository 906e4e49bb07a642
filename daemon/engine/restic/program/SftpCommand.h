// The command with which the storage program reaches a server by SSH.
#pragma once

#include <optional>
#include <string>

namespace keldane {

/// The command line of ssh for "sftp:user@host:/path" or "sftp://user@host:port/path". It asks for no
/// password and notices within about a minute that the server is gone; without these options ssh would wait
/// for a quarter of an hour. Absent for any other location, and for a host or user that is no plain name.
std::optional<std::string> sftpCommand(const std::string& location);

}  // namespace keldane
