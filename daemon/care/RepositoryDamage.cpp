// The treatment of damage: affected files no longer count as stored, and damaged packs are taken out of the
// repository.
#include <algorithm>
#include <chrono>
#include <thread>

#include "daemon/backup/batch/Manifest.h"
#include "daemon/care/RepositoryCare.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr int kLockTries = 60;  // one a second

}  // namespace

// A program that was killed may have left a lock, so a second check follows after removing stale locks.
CheckAnswer RepositoryCare::checkTwice(unsigned part, unsigned parts, EngineJob& job) {
  CheckAnswer found = engine_.check(part, parts, job);
  if (found.health == Health::locked && engine_.unlock(job)) {
    found = engine_.check(part, parts, job);
  }
  return found;
}

RepositoryCare::CheckEnd RepositoryCare::checkInTurn(unsigned part, unsigned parts, EngineJob& job) {
  CheckEnd end;
  CheckAnswer found = checkTwice(part, parts, job);
  end.answer = found;
  std::string more;
  if (const std::vector<std::string> packs = found.damagedPacks; !packs.empty()) {
    end.sentence = "The repository is damaged: ";
    if (const EngineAnswer taken = giveUpDamaged(packs, end.damagedFiles, job); !taken) {
      more = " Not all of the damage can be taken out: " + taken.detail;
    }
    end.sentence += std::to_string(end.damagedFiles.size()) +
                    " files have lost a part of what was stored and are stored anew.";
    found = checkTwice(0, 0, job);  // this reports what cannot be read without those packs
    end.answer = {};                // the known damage is treated file by file
  }
  if (!found.damagedSnapshots.empty()) {
    const EngineAnswer given = giveUpUnreadable(found.damagedSnapshots, job);
    more += " " + std::to_string(found.damagedSnapshots.size()) +
            " backups can no longer be read; what only they held is stored anew." +
            (given ? "" : " They cannot be forgotten yet: " + given.detail);
  }
  const bool isDamaged = !end.sentence.empty() || found.health == Health::damaged;
  if (end.sentence.empty()) {
    end.ok = static_cast<bool>(found);
    end.sentence = !found       ? found.detail
                   : parts == 0 ? "The structure of the repository is whole."
                                : "The structure and the stored bytes that were read are whole.";
  }
  end.sentence += more;
  if (isDamaged) {
    alert(end.sentence);
  }
  if (end.ok || isDamaged) {
    did("lastCheck");
    store_.setValue(Store::Table::settings, "lastCheckResult", end.sentence);
  }
  return end;
}

// If the index is damaged too, it is made anew first.
EngineAnswer RepositoryCare::filesInPacks(const std::vector<std::string>& packs,
                                          std::vector<FoundEntry>& found, EngineJob& job) {
  EngineAnswer answer = engine_.filesInPacks(packs, found, job);
  if (answer.health == Health::damaged || answer.health == Health::failed) {
    found.clear();
    answer = dropPacks({}, job);
    answer = answer ? engine_.filesInPacks(packs, found, job) : answer;
  }
  return answer;
}

// A later check reports damage that no file depends on any more.
void RepositoryCare::storedAnew() {
  const std::string word = " Since then everything that is selected was stored anew.";
  const std::string result = store_.value(Store::Table::settings, "lastCheckResult").value_or("");
  if (store_.damagedFiles().empty() && !result.empty() && !result.ends_with(word)) {
    store_.setValue(Store::Table::settings, "lastCheckResult", result + word);
  }
}

// A batch that runs meanwhile would use damaged data and hold a lock that keeps the damage in the index.
// Nothing is taken out before the affected files are known.
EngineAnswer RepositoryCare::giveUpDamaged(const std::vector<std::string>& packs,
                                           std::vector<std::string>& files, EngineJob& job) {
  const std::shared_ptr<void> stillness = holdStill(job);
  std::vector<FoundEntry> found;
  if (const EngineAnswer answer = filesInPacks(packs, found, job); !answer) {
    return answer;
  }
  const std::vector<SnapshotRecord> snapshots = store_.snapshots();
  for (const FoundEntry& entry : found) {
    const auto holder = std::find_if(snapshots.begin(), snapshots.end(), [&](const SnapshotRecord& snapshot) {
      return entry.snapshot.starts_with(snapshot.id);
    });
    if (holder != snapshots.end()) {
      giveUp(entry, *holder, files);
    }
  }
  std::sort(files.begin(), files.end());
  files.erase(std::unique(files.begin(), files.end()), files.end());
  const EngineAnswer answer = dropPacks(packs, job);
  lostBytes();
  lostFiles();
  return answer;
}

// Without the list of names of a folder, its files cannot be restored by their paths.
void RepositoryCare::giveUp(const FoundEntry& found, const SnapshotRecord& snapshot,
                            std::vector<std::string>& files) {
  const std::string& whole = found.entry.path;
  if (found.entry.kind == EntryKind::folder) {
    const bool isAbove = isAtOrBelow(snapshot.prefix, whole);
    const std::string folder = isAbove ? "/" : whole.substr(std::min(snapshot.prefix.size(), whole.size()));
    store_.visitRecords(folder, [&](const std::string& path, const BackupRecord&) {
      store_.setDamaged(path, snapshot.id);
      files.push_back(path);
      return true;
    });
  } else if (whole.starts_with(snapshot.prefix) && !whole.ends_with(std::string("/") + kManifestName)) {
    files.push_back(whole.substr(snapshot.prefix.size()));
    store_.setDamaged(files.back(), snapshot.id);
  }
}

// Files that other snapshots also hold stay stored. Snapshots of a former computer are only removed from the
// catalogue.
EngineAnswer RepositoryCare::giveUpUnreadable(const std::vector<std::string>& ids, EngineJob& job) {
  const std::shared_ptr<void> stillness = holdStill(job);
  const std::optional<RepositoryConfig> configuration = files_.configuration();
  const std::uint32_t former = configuration ? configuration->formerHighest : 0;
  std::vector<SnapshotRecord> own;
  std::vector<std::uint32_t> numbers;
  for (const SnapshotRecord& snapshot : store_.snapshots()) {
    if (std::any_of(ids.begin(), ids.end(),
                    [&](const std::string& id) { return id.starts_with(snapshot.id); })) {
      numbers.push_back(snapshot.number);
      if (snapshot.number > former) {
        own.push_back(snapshot);
      }
    }
  }
  const EngineAnswer answer = own.empty() ? EngineAnswer() : forgetAll(own, job);
  store_.removeSnapshots(numbers);  // even if they are still in the repository
  lostBytes();
  lostFiles();
  return answer;
}

// This waits for other users of the repository, such as a restore. A program that was killed may have left a
// lock.
EngineAnswer RepositoryCare::dropPacks(const std::vector<std::string>& packs, EngineJob& job) {
  EngineAnswer answer = engine_.dropPacks(packs, job);
  for (int tries = 0; answer.health == Health::locked && tries < kLockTries && !job.cancelled; ++tries) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    engine_.unlock(job);
    answer = engine_.dropPacks(packs, job);
  }
  if (!answer) {
    systemLog("Damaged parts of the repository cannot be taken out: %@", answer.detail);
  }
  return answer;
}

}  // namespace keldane
