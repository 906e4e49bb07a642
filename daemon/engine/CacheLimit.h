// Keeps the storage program's cache from growing without an end.
#pragma once

#include <cstdint>
#include <string>

namespace keldane {

/// Removes what was not used for the longest time until the cache has at most this many bytes. Only what can
/// be fetched again from the repository goes, so a program that uses the cache meanwhile goes on. Any thread.
void limitCache(const std::string& cache, std::uint64_t bytes);

}  // namespace keldane
