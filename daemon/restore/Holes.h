// Giving files their holes back.
#pragma once

#include <cstdint>
#include <functional>

namespace keldane {

/// Holes are looked for in files of at least this many bytes.
inline constexpr std::uint64_t kLeastSizeForHoles = std::uint64_t{1} << 20;

/// Makes holes of whole, aligned runs of 64 KiB of zeros: the storage program writes zeros where a file had
/// holes. What is a hole already is passed over. `name` is a regular file in a folder that only this process
/// changes; mode and times stay. `mayGoOn` is asked every 64 MiB; false ends it. A file system that knows no
/// holes leaves the file as it is.
void makeHoles(int folder, const char* name, const std::function<bool()>& mayGoOn);

}  // namespace keldane
