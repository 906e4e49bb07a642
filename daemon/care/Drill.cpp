#include "daemon/care/Drill.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <span>

#include "daemon/scan/disk/FileFacts.h"
#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 17;

// Reads until the block is full or the end is reached.
std::size_t fill(int descriptor, std::span<char> block) {
  std::size_t have = 0;
  while (have < block.size()) {
    const ssize_t got = read(descriptor, block.data() + have, block.size() - have);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;
    }
    have += static_cast<std::size_t>(got);
  }
  return have;
}

struct Comparison {
  std::uint64_t bytes = 0;  ///< the number of fetched bytes
  bool isSame = true;
};

// Reads everything from the pipe, and compares it with the file if there is one.
Comparison compare(const Descriptor& fetched, const Descriptor& file) {
  Comparison comparison;
  std::vector<char> left(kBlock);
  std::vector<char> right(kBlock);
  for (;;) {
    const std::size_t got = fill(fetched.get(), left);
    if (file && comparison.isSame) {
      const std::size_t expected = fill(file.get(), right);
      comparison.isSame =
          expected == got &&
          std::equal(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(got), right.begin());
    }
    comparison.bytes += got;
    if (got < left.size()) {
      return comparison;
    }
  }
}

}  // namespace

std::string DrillEnd::sentence() const {
  if (!failed.empty()) {
    return std::to_string(failed.size()) + " of " + std::to_string(compared + hashed + failed.size()) +
           " sample files could not be had back as they were stored.";
  }
  return std::to_string(compared) + " sample files were compared byte by byte with the disk, " +
         std::to_string(hashed) + " with the hashes of the repository.";
}

DrillEnd Drill::run(std::size_t files, EngineJob& job) {
  DrillEnd end;
  for (const std::string& path : store_.sample(files)) {
    tryFile(path, end, job);
    if (!end.answer || job.cancelled) {
      break;
    }
  }
  if (job.cancelled) {
    end.answer = {Health::cancelled, "The drill was cancelled."};
  }
  return end;
}

void Drill::tryFile(const std::string& path, DrillEnd& end, EngineJob& job) {
  const std::vector<VersionRecord> versions = store_.versions(path, 1);
  const std::optional<struct stat> before = statusOf(path);
  if (versions.empty() || versions[0].damaged || (before && S_ISLNK(before->st_mode))) {
    return;
  }
  const VersionRecord& version = versions[0];
  const bool isHere = before && S_ISREG(before->st_mode) && fileStateOf(*before) == version;
  const Descriptor file(isHere ? open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY) : -1);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    end.answer = {Health::failed, "No pipe can be made."};
    return;
  }
  Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  std::future<Comparison> comparing = std::async(std::launch::async, [&] { return compare(reading, file); });
  const EngineAnswer answer = engine_.fetch(version.snapshot, version.prefix + path, writing.get(), job);
  writing = Descriptor();
  const Comparison comparison = comparing.get();
  if (answer.health == Health::cancelled) {
    return;
  }
  if (!answer && answer.health != Health::damaged && answer.health != Health::failed) {
    end.answer = answer;
    return;
  }
  const std::optional<struct stat> after = statusOf(path);
  const bool stayed = file && after && fileStateOf(*after) == version;
  if (!answer || (stayed && (!comparison.isSame || comparison.bytes != version.size))) {
    store_.setDamaged(path, version.snapshot);
    end.failed.push_back(path);
  } else {
    ++(stayed ? end.compared : end.hashed);
  }
}

}  // namespace keldane
