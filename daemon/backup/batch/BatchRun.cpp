#include "daemon/backup/batch/BatchRun.h"

#include <fcntl.h>

#include <filesystem>
#include <future>
#include <map>
#include <set>
#include <unordered_set>

#include "daemon/Clock.h"
#include "daemon/backup/batch/LookAlikes.h"
#include "daemon/backup/batch/Manifest.h"
#include "daemon/backup/batch/Targets.h"
#include "platform/files/Descriptor.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

// A list of more files than this would make the snapshot itself large, because it keeps the list.
constexpr std::size_t kMostListedFiles = 20'000;

enum class Now : std::uint8_t { same, other, gone };

/// Compares the files on the disk with what the batch knows about them.
std::vector<Now> standings(const std::vector<BatchFile>& files) {
  std::vector<Now> now;
  now.reserve(files.size());
  for (const BatchFile& file : files) {
    const std::optional<struct stat> status = statusOf(file.path);
    now.push_back(!status ? Now::gone : fileStateOf(*status) == file.state ? Now::same : Now::other);
  }
  return now;
}

}  // namespace

struct BatchRun::Taken {
  PathsByFolder paths;
  std::map<std::string, std::string> failed;  // reason by path
  LookAlikes lookAlikes;
  EngineAnswer lookAlikesAnswer;

  bool has(const std::string& path) const {
    const LookAlikes::Word word = lookAlikes.wordOn(path);
    return word == LookAlikes::Word::engines ? paths.contains(asTold(path))
                                             : word == LookAlikes::Word::stored;
  }
  /// Absent when it did not fail.
  const std::string* failureOf(const std::string& path) const {
    const auto found = failed.find(asTold(path));
    return found == failed.end() || lookAlikes.wordOn(path) == LookAlikes::Word::stored ? nullptr
                                                                                        : &found->second;
  }
  bool isUnknown(const std::string& path) const {
    return lookAlikes.wordOn(path) == LookAlikes::Word::unknown;
  }
};

std::string BatchRun::manifestFor(const Batch& batch, std::uint32_t number, double date, Taken& taken) const {
  ManifestHead head;
  const std::optional<RepositoryConfig> configuration = files_.configuration();
  head.computerNumber = configuration ? configuration->computerNumber : 0;
  head.number = number;
  head.date = date;
  head.full = batch.full;
  head.rules = store_.rules();
  head.types = store_.types();
  head.settings = store_.values(Store::Table::settings);
  head.profile = store_.values(Store::Table::profile);
  const std::string file = files_.folder().manifests() + "/" + std::to_string(number) + "/" + kManifestName;
  writeManifest(file, head, [&](const std::function<void(const ManifestFile&)>& write) {
    for (const BatchFile& again : batch.again) {
      taken.lookAlikes.add(again.path);
      write({again.path, again.state, again.version, again.date});
    }
    if (batch.full) {
      store_.visitRecords("/", [&](const std::string& path, const BackupRecord& record) {
        if (!record.removed && !record.damaged) {
          taken.lookAlikes.add(path);
          write({path, record, record.version, record.date});
        }
        return true;
      });
    }
  });
  return file;
}

std::vector<std::string> BatchRun::targetsOf(const Batch& batch) const {
  if (batch.full) {
    return targetsIn(rules_.places(), rules_,
                     [this](const std::string& path) { return rules_.decide(path, false).selected; });
  }
  if (batch.files.size() > kMostListedFiles) {
    std::unordered_set<std::string_view> wanted;
    for (const BatchFile& file : batch.files) {
      wanted.insert(file.path);
    }
    return targetsIn(rules_.places(), rules_,
                     [&wanted](const std::string& path) { return wanted.contains(path); });
  }
  std::vector<std::string> targets;
  for (const std::vector<BatchFile>* files : {&batch.files, &batch.again}) {
    for (const BatchFile& file : *files) {
      targets.push_back(file.path);
    }
  }
  return targets;
}

BatchEnd BatchRun::run(const Batch& batch, EngineJob& job, const Progress& progress) {
  BatchEnd end;
  const double date = timeOfDay();
  const std::uint32_t number = store_.takeNumber();
  std::string manifest;
  StoreRequest request;
  Taken taken;
  try {
    manifest = manifestFor(batch, number, date, taken);
    request.targets = targetsOf(batch);
  } catch (const std::exception& error) {
    end.answer = {Health::failed, error.what()};
    return end;
  }
  request.targets.push_back(manifest);
  request.tags = {"keldane", "number:" + std::to_string(number), batch.full ? "full" : "part"};
  request.parent = batch.parent;
  StoreObserver observer;
  observer.took = [&](const std::string& path, bool) { taken.paths.add(path); };
  observer.couldNotRead = [&](const std::string& path, const std::string& reason) {
    taken.failed.emplace(path, reason);
  };
  observer.progress = [&](std::uint64_t files, std::uint64_t bytes, const std::string& current) {
    progress(files, bytes, current == manifest ? std::string() : current);  // the manifest is no user's file
  };
  const StoreAnswer answer = engine_.store(request, observer, job);
  std::error_code ignored;
  std::filesystem::remove_all(std::filesystem::path(manifest).parent_path(), ignored);
  end.answer = answer;
  end.bytesAdded = answer.bytesAdded;
  if (answer && !answer.snapshot.empty()) {
    end.snapshot = {number, answer.snapshot, date, batch.full, {}};
    for (const BatchFile& file : batch.files) {
      if (!file.isLink) {
        taken.lookAlikes.add(file.path);
      }
    }
    taken.lookAlikesAnswer = taken.lookAlikes.settle(
        engine_, answer.snapshot, [&](const std::string& name) { return taken.paths.contains(name); },
        [&](const std::string& name) { return taken.failed.contains(name); }, job);
    settle(batch, taken, end, job);
  }
  return end;
}

// A file whose stored bytes were damaged is fetched once. The engine stores nothing twice, so it might have
// used the damaged bytes again. An answer other than damage says nothing about the file.
EngineAnswer BatchRun::fetchedOnce(const BatchFile& file, const SnapshotRecord& snapshot, EngineJob& job) {
  const Descriptor nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
  return engine_.fetch(snapshot.id, file.path, nothing.get(), job);
}

void BatchRun::settle(const Batch& batch, Taken& taken, BatchEnd& end, EngineJob& job) {
  const std::set<std::string> damaged = store_.damagedFiles();
  for (const BatchFile& file : batch.files) {
    if (!rules_.decide(file.path, false).selected) {
      continue;  // it was excluded meanwhile, so its place in the snapshot is not recorded
    }
    const std::string* failed = taken.failureOf(file.path);
    const bool isNamed = taken.has(file.path);
    const std::optional<struct stat> now = isNamed && !file.isLink ? std::nullopt : statusOf(file.path);
    // The engine does not report links. A link that is the same before and after the batch was stored.
    const bool isStored = file.isLink ? now && fileStateOf(*now) == file.state : isNamed;
    const EngineAnswer fetched = isStored && failed == nullptr && !file.isLink && damaged.contains(file.path)
                                     ? fetchedOnce(file, end.snapshot, job)
                                     : EngineAnswer();
    if (!file.isLink && taken.isUnknown(file.path)) {
      end.answer = taken.lookAlikesAnswer;  // the file stays pending
    } else if (failed != nullptr) {
      couldNotStore(file, *failed);
    } else if (fetched.health == Health::damaged) {
      couldNotStore(file, "What the repository has of it is damaged, and could not be stored anew.");
    } else if (!fetched) {
      end.answer = fetched;  // the file stays pending
    } else if (isStored) {
      end.stored.push_back({file.path, file.state});
    } else if (now && fileStateOf(*now) == file.state) {
      couldNotStore(file, "The storage program passed it over.");
    }
  }
  // Looking at the files takes about as long as writing the catalogue, so both are done at the same time.
  // Files that become pending meanwhile are looked at again.
  const std::uint32_t scan = pending_.beginScan();
  const std::uint64_t lastWish = pending_.lastWish();
  std::future<std::vector<Now>> look = std::async([&batch] { return standings(batch.files); });
  store_.addSnapshot(end.snapshot, end.stored, confirmed(batch, taken));
  const std::vector<Now> now = look.get();
  auto stored = end.stored.begin();  // in the order of the batch
  for (std::size_t i = 0; i < batch.files.size(); ++i) {
    const BatchFile& file = batch.files[i];
    const bool isStored = stored != end.stored.end() && stored->path == file.path;
    const bool isDone = isStored && now[i] == Now::same;
    if (isStored) {
      // A wish for a file that changed meanwhile is a wish for what the file has now.
      endPreference(file.path, isDone ? lastWish : batch.lastWish);
      ++stored;
    }
    if (isDone && pending_.removeIfOlder(file.path, scan)) {
      continue;  // the catalogue need not be asked
    }
    if (isStored || now[i] == Now::gone || !rules_.decide(file.path, false).selected) {
      const std::uint64_t wishBefore = pending_.lastWish();
      scanner_.consider(file.path);         // it may have changed, disappeared, or been excluded meanwhile
      if (!pending_.contains(file.path)) {  // nothing of it is left to store
        endPreference(file.path, wishBefore);
      }
    }
  }
}

// The catalogue writes to the disk for each priority that it removes, so it is called only for files that
// have one.
void BatchRun::endPreference(const std::string& path, std::uint64_t lastWish) {
  if (pending_.endPreference(path, lastWish)) {
    store_.removePriority(path);
    if (pending_.isPreferred(path)) {  // somebody wished for it just now
      store_.addPriority(path);
    }
  }
}

PathsByFolder BatchRun::confirmed(const Batch& batch, const Taken& taken) const {
  PathsByFolder paths;
  const auto confirm = [&](const std::string& path, const FileState& state) {
    const std::optional<struct stat> now = statusOf(path);
    if (now && fileStateOf(*now) == state && (S_ISLNK(now->st_mode) || taken.has(path))) {
      paths.add(path);
    }
  };
  for (const BatchFile& file : batch.again) {
    confirm(file.path, file.state);
  }
  if (batch.full) {
    store_.visitRecords("/", [&](const std::string& path, const BackupRecord& record) {
      if (!record.removed && !record.damaged && rules_.decide(path, false).selected) {
        confirm(path, record);
      }
      return true;
    });
  }
  return paths;
}

void BatchRun::couldNotStore(const BatchFile& file, const std::string& reason) {
  systemLog("%@ cannot be stored: %@", file.path, reason);
  store_.setFailure(file.path, reason, timeOfDay());
  endPreference(file.path, pending_.lastWish());
  scanner_.putOff(file.path, file.state);
}

}  // namespace keldane
