// Files with secrets in them.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// What a small file holds, or standard input for "-". Throws CommandFailure when it cannot be read.
std::string readSecretFile(const std::string& path);
/// The key in a file, a saved or typed sheet, or standard input. Throws CommandFailure when there is none.
std::string readKeyFile(const std::string& path);
/// Makes a file that only its owner can read. Throws CommandFailure when something is there already, or it
/// cannot be written whole.
void writeSecretFile(const std::string& path, std::string_view text);

/// NAME=VALUE lines as a shell would take them: with "export" before them or not, quotes around the value or
/// not, empty lines and such that begin with "#" between them. Throws CommandFailure with the number of a
/// line that is none.
PropertyList::Entries environmentFrom(std::string_view text);

}  // namespace keldane
