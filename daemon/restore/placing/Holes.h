// Makes restored files sparse again.
#pragma once

#include <cstdint>
#include <functional>

namespace keldane {

/// Holes are looked for in files of at least this many bytes.
inline constexpr std::uint64_t kLeastSizeForHoles = std::uint64_t{1} << 20;

/// Replaces aligned runs of 64 KiB of zeros by holes, because the storage program writes zeros where a file
/// had holes. Existing holes are skipped. `name` is a regular file in a folder that only this process
/// changes; mode and times stay. `mayGoOn` is asked every 64 MiB; false ends the work. On a file system
/// without holes the file stays as it is.
void makeHoles(int folder, const char* name, const std::function<bool()>& mayGoOn);

}  // namespace keldane
