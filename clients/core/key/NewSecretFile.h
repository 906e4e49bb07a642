// Writes a file with a secret in it.
#pragma once

#include <string>
#include <string_view>

namespace keldane {

/// Makes a file that only its owner can read. What went wrong as a sentence, empty when nothing did: a file
/// that is there is not overwritten, and one that cannot be written whole does not stay.
std::string writeNewSecretFile(const std::string& path, std::string_view text);

}  // namespace keldane
