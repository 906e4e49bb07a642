// The location of a repository in the storage program's format.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Whether the location is a folder of this computer rather than a place on a server.
bool isFolder(std::string_view location);
/// Whether the location contains a password or another secret.
bool holdsSecret(std::string_view location);
/// Whether the location names a user of a web server without a password.
bool lacksPassword(std::string_view location);
/// The location with a password for the user that it names.
std::string withPassword(const std::string& location, std::string_view password);

}  // namespace keldane
