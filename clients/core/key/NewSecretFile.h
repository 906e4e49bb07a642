// Writes a new file with a secret.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Creates a file that only its owner can read. Returns a sentence about a failure, or an empty string on
/// success. An existing file is not overwritten, and a file that cannot be written completely is removed.
std::string writeNewSecretFile(const std::string& path, std::string_view text);

}  // namespace keldane
