#include "daemon/scan/disk/ReadAhead.h"

#include <utility>

namespace keldane {

namespace {

// A batch with this many files gets no more folders.
constexpr std::size_t kManyFiles = 8192;

}  // namespace

ReadAhead::ReadAhead(Read read) : read_(std::move(read)), thread_([this] { run(); }) {}

ReadAhead::~ReadAhead() {
  {
    const std::lock_guard guard(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

// The batch that the caller works on is not free.
void ReadAhead::take(std::vector<std::string>& folders) {
  while (!folders.empty() && given_ + 1 < answered_ + batches_.size()) {
    Batch& batch = at(given_);
    batch.count = 0;
    for (; batch.count < kFolders && !folders.empty(); ++batch.count) {
      batch.folders[batch.count].path = std::move(folders.back());
      folders.pop_back();
    }
    {
      const std::lock_guard guard(mutex_);
      ++given_;
    }
    changed_.notify_all();
  }
}

std::span<FolderRead> ReadAhead::next(std::vector<std::string>& folders) {
  {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return done_ > answered_; });
  }
  Batch& batch = at(answered_++);
  const std::size_t begin = batch.error ? 1 : batch.read;
  for (std::size_t unread = batch.count; unread > begin; --unread) {
    folders.push_back(std::move(batch.folders[unread - 1].path));
  }
  if (batch.error) {
    std::rethrow_exception(std::exchange(batch.error, nullptr));
  }
  return std::span(batch.folders).first(batch.read);
}

void ReadAhead::run() {
  std::unique_lock guard(mutex_);
  for (;;) {
    changed_.wait(guard, [this] { return isEnding_ || done_ < given_; });
    if (isEnding_) {
      return;
    }
    Batch& batch = at(done_);
    guard.unlock();
    readBatch(batch);
    guard.lock();
    ++done_;
    changed_.notify_all();
  }
}

void ReadAhead::readBatch(Batch& batch) {
  std::size_t files = 0;
  batch.read = 0;
  try {
    while (batch.read < batch.count && files < kManyFiles) {
      FolderRead& folder = batch.folders[batch.read];
      read_(folder);
      files += folder.entries.files().size();
      ++batch.read;
    }
  } catch (...) {
    if (batch.read == 0) {  // otherwise the folder is the first of another batch, and throws again
      batch.error = std::current_exception();
    }
  }
}

}  // namespace keldane
