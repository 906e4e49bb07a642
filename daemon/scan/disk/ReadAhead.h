// Reads folders before the scanner needs them.
#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "daemon/scan/disk/FolderEntries.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The result of reading one folder.
struct FolderRead {
  std::string path;
  std::uint32_t scan = 0;  ///< the number of the scan, taken before the folder was read
  int error = 0;           ///< 0, or the error number
  FolderEntries entries;   ///< the folder stays open
};

/// Reads batches of folders on its own thread while the caller works on the batch before. Only a few folders
/// are open and in memory at the same time, however large they are. All calls come from one thread. The
/// reading thread ends with this object.
class ReadAhead {
 public:
  /// Reads the folder at `path`; called on the reading thread.
  using Read = std::function<void(FolderRead& folder)>;
  static constexpr std::size_t kFolders = 16;  ///< the most folders of one batch

  explicit ReadAhead(Read read);
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  /// Takes folders from the end of the list, as long as a batch is free.
  void take(std::vector<std::string>& folders);
  /// Whether all folders that were taken have been answered.
  bool isIdle() const { return given_ == answered_; }
  /// Waits for the oldest batch and returns its folders; they are valid until the next call. Folders that
  /// were not read, because those before them have too many entries, go back to the list. Throws the
  /// exception of the reading thread; only the folder that caused it is lost. There must be a batch.
  std::span<FolderRead> next(std::vector<std::string>& folders);

 private:
  struct Batch {
    std::array<FolderRead, kFolders> folders;
    std::size_t count = 0;
    std::size_t read = 0;
    std::exception_ptr error;
  };
  void run();
  /// Waits for a batch to read. Returns null when the thread is to end.
  Batch* nextToRead() KELDANE_EXCLUDES(mutex_);
  void readBatch(Batch& batch);
  Batch& at(std::size_t number) { return batches_[number % batches_.size()]; }

  const Read read_;
  std::array<Batch, 3> batches_;  // one that the caller works on, one that is read, one that waits
  Mutex mutex_{{.name = "ReadAhead.mutex", .leaf = true}};
  Condition changed_;
  std::size_t given_ = 0;  // batches that were handed over; the caller's thread writes it with the mutex held
  std::size_t done_ KELDANE_GUARDED_BY(mutex_) = 0;  // batches that were read
  std::size_t answered_ = 0;  // batches that next() has answered; of the caller's thread
  bool isEnding_ KELDANE_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace keldane
