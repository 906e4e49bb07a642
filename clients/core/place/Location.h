// Where a repository is, as the storage program is told.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Whether it is a folder of this computer rather than a place on a server.
bool isFolder(std::string_view location);
/// Whether a password or another secret stands in it.
bool holdsSecret(std::string_view location);
/// Whether it names a user of a web server, whose password is missing.
bool lacksPassword(std::string_view location);
/// The same with the password of the user that it names.
std::string withPassword(const std::string& location, std::string_view password);

}  // namespace keldane
