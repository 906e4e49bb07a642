#include "daemon/backup/batch/BatchChoice.h"

#include <map>

#include "daemon/ByteSum.h"

namespace keldane {

namespace {

/// Collects the first files of each owner, as many as fit into a batch.
class Candidates {
 public:
  explicit Candidates(const BatchBounds& bounds) : bounds_(bounds) {}

  void add(const PendingFiles::File& file) {
    std::vector<PendingFiles::File>& files = files_[file.owner];
    std::uint64_t& sum = sums_[file.owner];
    if (files.size() < bounds_.files && sum <= bounds_.bytes) {
      files.push_back(file);
      sizes_[file.owner].push_back(file.bytes);
      sum = saturatedSum(sum, file.bytes);
    }
  }

  std::vector<PendingFiles::File> divide(FairShare& share) {
    std::vector<PendingFiles::File> chosen;
    for (const auto& [owner, count] : share.divide(sizes_, bounds_)) {
      std::vector<PendingFiles::File>& files = files_[owner];
      std::move(files.begin(), files.begin() + static_cast<std::ptrdiff_t>(count),
                std::back_inserter(chosen));
    }
    return chosen;
  }

 private:
  const BatchBounds bounds_;
  std::map<uid_t, std::vector<PendingFiles::File>> files_;
  std::map<uid_t, std::uint64_t> sums_;
  WaitingSizes sizes_;
};

}  // namespace

BatchChoice::Choice BatchChoice::ordinary(const BatchBounds& bounds) {
  Choice choice;
  Candidates candidates(bounds);
  pending_.visit([&](const PendingFiles::File& file) {
    if (file.bytes >= kLargeFile) {
      choice.large.push_back({file.path, file.owner, false});
    } else if (!pending_.isPreferred(file.path)) {
      candidates.add(file);
    }
    return true;
  });
  choice.files = candidates.divide(ordinaryShare_);
  return choice;
}

BatchChoice::Choice BatchChoice::preferred(const BatchBounds& bounds) {
  Candidates candidates(bounds);
  for (const PendingFiles::File& file : pending_.waitingPreferred()) {
    if (file.bytes < kLargeFile) {
      candidates.add(file);
    }
  }
  return {candidates.divide(preferredShare_), {}};
}

std::vector<LargeFile> BatchChoice::preferredLarge() const {
  std::vector<LargeFile> large;
  for (const PendingFiles::File& file : pending_.waitingPreferred()) {
    if (file.bytes >= kLargeFile) {
      large.push_back({file.path, file.owner, true});
    }
  }
  return large;
}

}  // namespace keldane
