#include "daemon/engine/restic/program/CacheLimit.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <vector>

namespace keldane {
namespace {

struct CachedFile {
  std::filesystem::path path;
  std::uint64_t size = 0;
  std::time_t used = 0;
};

std::vector<CachedFile> filesIn(const std::string& cache) {
  std::vector<CachedFile> files;
  std::error_code error;
  constexpr auto kOptions = std::filesystem::directory_options::skip_permission_denied;
  for (std::filesystem::recursive_directory_iterator entry(cache, kOptions, error), end;
       !error && entry != end; entry.increment(error)) {
    struct stat status {};
    if (::lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      files.push_back({entry->path(), static_cast<std::uint64_t>(status.st_size),
                       std::max(status.st_atime, status.st_mtime)});
    }
  }
  return files;
}

/// "cache/<repository>/data/01/0123…" is a pack. Indexes and snapshots are small and needed by every run.
bool isPack(const std::filesystem::path& path) {
  return path.parent_path().parent_path().filename() == "data";
}

}  // namespace

void limitCache(const std::string& cache, std::uint64_t bytes) {
  std::vector<CachedFile> files = filesIn(cache);
  std::uint64_t total = 0;
  for (const CachedFile& file : files) {
    total += file.size;
  }
  std::ranges::sort(files, {}, &CachedFile::used);
  for (const CachedFile& file : files) {
    std::error_code error;
    if (total <= bytes) {
      return;
    }
    if (isPack(file.path) && std::filesystem::remove(file.path, error)) {
      total -= file.size;
    }
  }
}

}  // namespace keldane
