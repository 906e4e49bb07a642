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
    const ScopedLock guard(mutex_);
    isEnding_ = true;
  }
  changed_.notifyAll();
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
      const ScopedLock guard(mutex_);
      ++given_;
    }
    changed_.notifyAll();
  }
}

std::span<FolderRead> ReadAhead::next(std::vector<std::string>& folders) {
  {
    const ScopedLock guard(mutex_);
    changed_.wait(mutex_, [this]() KELDANE_REQUIRES(mutex_) { return done_ > answered_; });
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
  while (Batch* const batch = nextToRead()) {
    readBatch(*batch);
    {
      const ScopedLock guard(mutex_);
      ++done_;
    }
    changed_.notifyAll();
  }
}

ReadAhead::Batch* ReadAhead::nextToRead() {
  const ScopedLock guard(mutex_);
  changed_.wait(mutex_, [this]() KELDANE_REQUIRES(mutex_) { return isEnding_ || done_ < given_; });
  return isEnding_ ? nullptr : &at(done_);
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
