#include "daemon/backup/BatchChoice.h"

#include <unistd.h>

#include <map>

#include "daemon/ByteSum.h"
#include "daemon/backup/FileFacts.h"

namespace keldane {

namespace {

/// Of each owner as many of the first files as could go into a batch.
class Candidates {
 public:
  explicit Candidates(const BatchBounds& bounds) : bounds_(bounds) {}

  void add(uid_t owner, const PendingFiles::File& file) {
    std::vector<PendingFiles::File>& files = files_[owner];
    std::uint64_t& sum = sums_[owner];
    if (files.size() < bounds_.files && sum <= bounds_.bytes) {
      files.push_back(file);
      sizes_[owner].push_back(file.bytes);
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
      choice.large.push_back({file.path, ownerOf_(file.path), false});
    } else if (!pending_.isPreferred(file.path)) {
      candidates.add(ownerOf_(file.path), file);
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
      candidates.add(ownerOf_(file.path), file);
    }
  }
  return {candidates.divide(preferredShare_), {}};
}

std::vector<LargeFile> BatchChoice::preferredLarge() const {
  std::vector<LargeFile> large;
  for (const PendingFiles::File& file : pending_.waitingPreferred()) {
    if (file.bytes >= kLargeFile) {
      large.push_back({file.path, ownerOf_(file.path), true});
    }
  }
  return large;
}

BatchChoice::OwnerOf ownersOnDisk() {
  if (geteuid() != 0) {
    return [](const std::string&) { return uid_t{0}; };
  }
  return [](const std::string& path) {
    const std::optional<struct stat> status = statusOf(path);
    return status ? status->st_uid : uid_t{0};
  };
}

}  // namespace keldane
