// Reads and writes files with secrets.
#pragma once

#include <string>
#include <string_view>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The content of a small file, or of standard input for "-". Throws CommandFailure when it cannot be read.
std::string readSecretFile(const std::string& path);
/// Reads the key from a file, from a saved or typed sheet, or from standard input. Throws CommandFailure when
/// there is none.
std::string readKeyFile(const std::string& path);
/// Creates a file that only its owner can read. Throws CommandFailure when the path exists, or when the file
/// cannot be written completely.
void writeSecretFile(const std::string& path, std::string_view text);

/// Reads NAME=VALUE lines as a shell would: "export" may precede them, the value may be in quotes, and there
/// may be empty lines and lines that begin with "#". Throws CommandFailure with the number of an invalid
/// line.
PropertyList::Entries environmentFrom(std::string_view text);

}  // namespace keldane
