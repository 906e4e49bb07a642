#include "tests/support/daemon/RecordingEngine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "daemon/backup/batch/LookAlikes.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/scan/disk/FileFacts.h"
#include "platform/files/Descriptor.h"

namespace keldane::testing {

namespace {

namespace fs = std::filesystem;

// The snapshots are kept in a file beside the store, so that a daemon that is started again finds them.
std::string snapshotsFile(const RepositoryFiles& files) {
  return files.folder().path + "/recorded-snapshots";
}

// The pause after each file in low-priority mode.
constexpr auto kLowPriorityPause = std::chrono::milliseconds(50);

// Root could read every file, so the mode decides which file counts as unreadable.
bool isReadable(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 && (status.st_mode & (S_IRUSR | S_IRGRP | S_IROTH)) != 0;
}

enum class ReadEnd { whole, unreadable, cancelled };

ReadEnd readWholeFile(const std::string& path, std::uint64_t files, std::uint64_t& bytes,
                      const StoreObserver& observer, const EngineJob& job) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (file && !isReadable(file.get())) {
    return ReadEnd::unreadable;
  }
  std::array<char, 1 << 16> block{};
  for (;;) {
    const ssize_t got = file ? read(file.get(), block.data(), block.size()) : -1;
    if (job.cancelled) {
      return ReadEnd::cancelled;
    }
    if (got < 0 && file && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return got == 0 ? ReadEnd::whole : ReadEnd::unreadable;
    }
    bytes += static_cast<std::uint64_t>(got);
    observer.progress(files, bytes, path);
  }
}

}  // namespace

EngineAnswer RecordingEngine::probe(EngineJob&) { return {}; }

EngineAnswer RecordingEngine::initialize(EngineJob&) {
  RepositoryConfig configuration = files_.configuration().value_or(RepositoryConfig());
  configuration.repositoryId = std::string(64, '0');
  files_.setConfiguration(configuration);
  return {};
}

EngineAnswer RecordingEngine::repositoryId(std::string& id, EngineJob&) {
  id = std::string(64, '0');
  return {};
}

StoreAnswer RecordingEngine::store(const StoreRequest& request, const StoreObserver& observer,
                                   EngineJob& job) {
  StoreAnswer answer;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::vector<std::string> lookAlikes;
  const auto take = [&](const std::string& path) {
    observer.progress(files, bytes, path);
    if (job.lowPriority) {
      std::this_thread::sleep_for(kLowPriorityPause);
    }
    const ReadEnd end = readWholeFile(path, files, bytes, observer, job);
    if (end == ReadEnd::cancelled) {
      return false;
    }
    if (end == ReadEnd::whole) {
      ++files;
      observer.took(asTold(path), false);
      if (canLookLikeAnother(path)) {
        lookAlikes.push_back(path);
      }
    } else if (statusOf(path)) {
      observer.couldNotRead(asTold(path), "It cannot be read.");
      answer.someUnreadable = true;
    }
    return true;
  };
  bool goesOn = true;
  for (const std::string& target : request.targets) {
    std::error_code error;
    if (fs::is_directory(fs::symlink_status(target, error))) {
      for (fs::recursive_directory_iterator at(target, error), end; goesOn && !error && at != end;
           at.increment(error)) {
        goesOn = !at->is_regular_file(error) || at->is_symlink(error) || take(at->path().string());
      }
    } else if (fs::is_regular_file(fs::symlink_status(target, error))) {
      goesOn = goesOn && take(target);
    }
  }
  if (!goesOn) {
    answer.health = Health::cancelled;
    return answer;
  }
  const std::lock_guard guard(mutex_);
  std::ostringstream line;
  for (const std::string& tag : request.tags) {
    line << tag << ' ';
  }
  std::ofstream(snapshotsFile(files_), std::ios::app) << line.str() << '\n';
  std::string number;
  for (const std::string& tag : request.tags) {
    number = tag.starts_with("number:") ? tag.substr(7) : number;
  }
  answer.bytesAdded = bytes;
  answer.snapshot = std::string(64 - number.size(), 'a') + number;
  if (!lookAlikes.empty()) {
    lookAlikes_[answer.snapshot] = std::move(lookAlikes);
  }
  return answer;
}

EngineAnswer RecordingEngine::snapshots(bool, std::vector<Snapshot>& found, EngineJob&) {
  const std::lock_guard guard(mutex_);
  std::ifstream lines(snapshotsFile(files_));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream tags(line);
    Snapshot snapshot;
    for (std::string tag; tags >> tag;) {
      snapshot.tags.push_back(tag);
      if (tag.starts_with("number:")) {
        const std::string number = tag.substr(7);
        snapshot.id = std::string(64 - number.size(), 'a') + number;
      }
    }
    found.push_back(std::move(snapshot));
  }
  return {};
}

EngineAnswer RecordingEngine::list(const std::string& snapshot, const std::string& path, const Visit& visit,
                                   EngineJob&) {
  const std::lock_guard guard(mutex_);
  for (const std::string& stored : lookAlikes_[snapshot]) {
    if (isAtOrBelow(stored, path)) {
      visit({asTold(stored), EntryKind::file});
    }
  }
  return {};
}
EngineAnswer RecordingEngine::find(const std::string&, std::vector<FoundEntry>&, EngineJob&) { return {}; }
EngineAnswer RecordingEngine::fetch(const std::string& snapshot, const std::string& path, int, EngineJob&) {
  const std::lock_guard guard(mutex_);
  return std::ranges::count(lookAlikes_[snapshot], path) > 0
             ? EngineAnswer()
             : EngineAnswer{Health::failed, "This engine keeps no contents."};
}
EngineAnswer RecordingEngine::restore(const std::string&, const std::vector<std::string>&, const std::string&,
                                      std::vector<std::string>&, EngineJob&) {
  return {Health::failed, "This engine keeps no contents."};
}
EngineAnswer RecordingEngine::forget(const std::vector<std::string>&, EngineJob&) { return {}; }
EngineAnswer RecordingEngine::prune(EngineJob&) { return {}; }
EngineAnswer RecordingEngine::unlock(EngineJob&) { return {}; }
CheckAnswer RecordingEngine::check(unsigned, unsigned, EngineJob&) { return {}; }
EngineAnswer RecordingEngine::filesInPacks(const std::vector<std::string>&, std::vector<FoundEntry>&,
                                           EngineJob&) {
  return {};
}
EngineAnswer RecordingEngine::dropPacks(const std::vector<std::string>&, EngineJob&) { return {}; }
EngineAnswer RecordingEngine::size(std::uint64_t& bytes, EngineJob&) {
  bytes = 0;
  return {};
}
EngineAnswer RecordingEngine::addKey(const std::string&, EngineJob&) { return {}; }

}  // namespace keldane::testing
