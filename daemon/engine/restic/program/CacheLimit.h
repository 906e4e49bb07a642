// Keeps the storage program's cache from growing without an end.
#pragma once

#include <cstdint>
#include <string>

namespace keldane {

/// Removes the files that were not used for the longest time until the cache has at most this many bytes.
/// Only files that can be fetched again from the repository are removed, so a program that uses the cache
/// meanwhile goes on. Used on any thread.
void limitCache(const std::string& cache, std::uint64_t bytes);

}  // namespace keldane
