// Reads folders ahead of whoever compares them with the catalogue.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "daemon/scan/FolderEntries.h"

namespace keldane {

/// One folder as it was read.
struct FolderRead {
  std::string path;
  std::uint32_t scan = 0;  ///< the look at the disk, which began before the folder was read
  int error = 0;           ///< 0, or the number of the error for which it could not be read
  FolderEntries entries;   ///< of a folder that stays open
};

/// Reads batches of folders on a thread of its own, so that the disk is read while the caller works on the
/// folders that were read before. Few folders are open and in memory at once, however large they are. One
/// thread calls; the thread ends with this object.
class ReadAhead {
 public:
  /// Reads the folder at `path`; called on the reading thread.
  using Read = std::function<void(FolderRead& folder)>;
  static constexpr std::size_t kFolders = 16;  ///< of one batch, at most

  explicit ReadAhead(Read read);
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  /// Hands folders over from the end of the list, as long as a batch is free.
  void take(std::vector<std::string>& folders);
  /// Whether nothing is left that was handed over.
  bool isIdle() const { return given_ == answered_; }
  /// Waits for the batch that was handed over first, and answers its folders, which stay as they are until
  /// the next call. Folders that were not read, because those before them hold too much, go back to the list.
  /// Throws what the reading threw; the folder of that is lost, and no other. There is a batch.
  std::span<FolderRead> next(std::vector<std::string>& folders);

 private:
  struct Batch {
    std::array<FolderRead, kFolders> folders;
    std::size_t count = 0;
    std::size_t read = 0;
    std::exception_ptr error;
  };
  void run();
  void readBatch(Batch& batch);
  Batch& at(std::size_t number) { return batches_[number % batches_.size()]; }

  const Read read_;
  std::array<Batch, 3> batches_;  // one that the caller works on, one that is read, one that waits
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t given_ = 0;     // batches that were handed over; written with the mutex held
  std::size_t done_ = 0;      // batches that were read; guarded by mutex_
  std::size_t answered_ = 0;  // batches that next() has answered; of the caller's thread
  bool isEnding_ = false;     // guarded by mutex_
  std::thread thread_;
};

}  // namespace keldane
