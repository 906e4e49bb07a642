// Large files: the order of their owners, and the reasons to interrupt the one that is being stored.
#include <algorithm>
#include <tuple>

#include "daemon/backup/BackupWorker.h"
#include "daemon/scan/disk/FileFacts.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

constexpr unsigned kMostTurnDoublings = 16;
// The interval at which other large files are looked for while one is read.
constexpr std::chrono::seconds kLookInterval(1);

}  // namespace

// The large files that the ordinary lane found and the preferred ones. A file may be in both lists.
std::vector<LargeFile> BackupWorker::waitingLarge() {
  std::vector<LargeFile> files = choice_.preferredLarge();
  std::erase_if(foundLarge_, [this](const LargeFile& file) { return !pending_.contains(file.path); });
  std::copy_if(foundLarge_.begin(), foundLarge_.end(), std::back_inserter(files),
               [this](const LargeFile& file) { return !pending_.isPreferred(file.path); });
  return files;
}

// The owner who had the last turn waits for the others. Among these, an owner who prefers a file comes first;
// otherwise they follow in the order of their user ids, beginning after the last owner's.
std::optional<Batch> BackupWorker::nextLarge() {
  std::vector<LargeFile> files;
  {
    const ScopedLock guard(mutex_);
    if (!mayWork(true)) {
      return std::nullopt;
    }
    files = waitingLarge();
    if (files.empty()) {
      doublings_.clear();
    }
    if (!isBatchDue() || isCaring_) {
      std::erase_if(files, [](const LargeFile& file) { return !file.isPreferred; });
    }
    const auto rank = [last = turn_.file.owner](const LargeFile& file) {
      return std::tuple(file.owner == last, !file.isPreferred, file.owner - last - 1);
    };
    std::stable_sort(files.begin(), files.end(),
                     [&](const LargeFile& a, const LargeFile& b) { return rank(a) < rank(b); });
  }
  for (const LargeFile& file : files) {
    Batch batch = batchOf({{file.path, 0}}, large_);
    if (!batch.files.empty()) {
      addAgain(batch);
      const ScopedLock guard(mutex_);
      const auto left = doublings_.find(file.path);
      const unsigned doublings = left == doublings_.end() ? 0 : std::min(left->second, kMostTurnDoublings);
      turn_ = {file, steady_clock::now() + timing_.turn * (1U << doublings), {}};
      return batch;
    }
  }
  return std::nullopt;
}

void BackupWorker::noteProgress(Lane& lane, std::uint64_t files, std::uint64_t bytes,
                                const std::string& current) {
  const ScopedLock guard(mutex_);
  const bool isNext = lane.current != current;
  lane.filesDone = std::min<std::uint64_t>(files, lane.batch->files.size());
  if (isNext) {
    lane.doneBeforeCurrent = bytes;
    lane.current = current;
    endIfExcluded(lane);
  }
  lane.bytesDone = std::max(bytes, lane.doneBeforeCurrent);
  if (lane.work == Work::large && steady_clock::now() >= turn_.nextLook) {
    turn_.nextLook = steady_clock::now() + kLookInterval;
    endOfTurn(lane);
  }
}

// Ends the batch when its file no longer belongs into the backup; the next batch begins without it. Rules
// that existed before were considered when the batch was made.
void BackupWorker::endIfExcluded(Lane& lane) {
  const auto concerns = [&](const std::string& path)
                            KELDANE_REQUIRES(mutex_) { return isAtOrBelow(lane.current, path); };
  const bool isConcerned =
      !lane.current.empty() && std::any_of(lane.reconsidered.begin(), lane.reconsidered.end(), concerns);
  const Decision decision = isConcerned ? rules_.decide(lane.current, false) : Decision();
  if (isConcerned && !decision.selected && !decision.barred) {
    lane.job.cancelled = true;
  }
}

// Interrupts a large file when its turn is over. A preferred file need not wait for the end of the turn of
// one that is not preferred. But each file is interrupted only once for another owner's preference, otherwise
// it might never be stored.
void BackupWorker::endOfTurn(Lane& lane) {
  const std::vector<LargeFile> files = waitingLarge();
  const bool isOver = steady_clock::now() >= turn_.end;
  const bool wasLeft = doublings_.contains(turn_.file.path);
  const auto mayInterrupt = [&](const LargeFile& file) KELDANE_REQUIRES(mutex_) {
    const bool isOwn = file.owner == turn_.file.owner;
    const bool comesFirst = file.isPreferred && !turn_.file.isPreferred && (isOwn || !wasLeft);
    return file.path != turn_.file.path && (comesFirst || (isOver && !isOwn));
  };
  const bool somebodyWaits = std::any_of(files.begin(), files.end(), mayInterrupt);
  if (somebodyWaits && !lane.job.cancelled) {
    ++doublings_[turn_.file.path];
    lane.job.cancelled = true;
  }
}

}  // namespace keldane
