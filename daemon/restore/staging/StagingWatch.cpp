#include "daemon/restore/staging/StagingWatch.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>

#include "daemon/restore/placing/PlaceItem.h"
#include "daemon/restore/staging/StagedFolder.h"

namespace keldane {

namespace {

// Looking at this many files takes a few hundredths of a second. Further files count when they are placed.
constexpr std::size_t kMostFiles = 10'000;
constexpr std::chrono::seconds kPause{1};

std::uint64_t bytesIn(int folder, std::size_t& left) {
  std::uint64_t bytes = 0;
  for (const std::string& name : namesIn(folder)) {
    struct stat status {};
    if (left == 0) {
      break;
    }
    --left;
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    if (S_ISDIR(status.st_mode)) {
      const Descriptor below(openFolderIn(folder, name.c_str(), O_RDONLY));
      bytes += below ? bytesIn(below.get(), left) : 0;
    } else if (S_ISREG(status.st_mode)) {
      bytes += static_cast<std::uint64_t>(status.st_size);
    }
  }
  return bytes;
}

}  // namespace

StagingWatch::StagingWatch(int folder, std::function<void(std::uint64_t bytes)> tell)
    : folder_(folder), tell_(std::move(tell)), thread_([this] { run(); }) {}

StagingWatch::~StagingWatch() {
  {
    const ScopedLock guard(mutex_);
    isEnded_ = true;
  }
  ended_.notifyAll();
  thread_.join();
}

void StagingWatch::run() {
  while (pause()) {
    std::size_t left = kMostFiles;
    tell_(bytesIn(folder_, left));
  }
}

bool StagingWatch::pause() {
  const ScopedLock guard(mutex_);
  return !ended_.waitFor(mutex_, kPause, [this]() KELDANE_REQUIRES(mutex_) { return isEnded_; });
}

}  // namespace keldane
