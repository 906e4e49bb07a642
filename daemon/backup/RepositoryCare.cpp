#include "daemon/backup/RepositoryCare.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <thread>

#include "daemon/Clock.h"
#include "daemon/backup/Gathering.h"
#include "daemon/backup/Manifest.h"
#include "daemon/backup/Reconciliation.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr std::size_t kManySnapshots = 40;
constexpr unsigned kCheckParts = 8;
constexpr std::size_t kDrillFiles = 40;
constexpr int kLockTries = 60;  // one a second

double numberOf(const std::optional<std::string>& text) {
  double number = 0;
  if (text) {
    std::from_chars(text->data(), text->data() + text->size(), number);
  }
  return number;
}

std::string hostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0' ? name.data() : "localhost";
}

// Never 0, which stands for none, and positive for clients that read it as signed.
std::uint32_t randomComputerNumber() {
  std::uint32_t number = 0;
  while (number == 0) {
    if (getrandom(&number, sizeof(number), 0) != sizeof(number)) {
      throw std::runtime_error("The system gives no random numbers.");
    }
    number &= 0x7FFFFFFF;
  }
  return number;
}

}  // namespace

RepositoryConfig newComputer() {
  RepositoryConfig configuration;
  configuration.computerNumber = randomComputerNumber();
  configuration.hostName = hostName();
  return configuration;
}

EngineAnswer RepositoryCare::makeReady(EngineJob& job) {
  try {
    const std::optional<RepositoryConfig> configuration = files_.configuration();
    if (!configuration || configuration->repositoryId.empty()) {
      if (const EngineAnswer made = setUpHere(job); !made) {
        return made;
      }
    } else if (const EngineAnswer answer = engine_.probe(job); !answer) {
      return answer;
    }
    if (const EngineAnswer answer = reconcile(job); !answer) {
      return answer;
    }
    return measure(job);
  } catch (const std::exception& error) {
    return {Health::failed, error.what()};
  }
}

// A set-up that was cut short goes on with the key and the place that it had.
EngineAnswer RepositoryCare::setUpHere(EngineJob& job) {
  if (!files_.configuration()) {
    if (files_.key().empty()) {
      files_.makeKey();
    }
    RepositoryConfig configuration = newComputer();
    configuration.location = files_.folder().localRepository();
    files_.setConfiguration(configuration);
  }
  return engine_.initialize(job);
}

EngineAnswer RepositoryCare::reconcile(EngineJob& job) {
  Reconciliation reconciliation(store_, rules_, engine_, files_);
  const EngineAnswer answer = reconciliation.run(
      [this](std::size_t done, std::size_t all) {
        read_ = done;
        toRead_ = all;
      },
      job);
  if (answer) {
    read_ = 0;
    toRead_ = 0;
    if (reconciliation.hasChanged()) {
      lostFiles();
    }
  }
  return answer;
}

EngineAnswer RepositoryCare::measure(EngineJob& job) {
  std::uint64_t bytes = 0;
  const EngineAnswer answer = engine_.size(bytes, job);
  if (answer) {
    size_ = bytes;
  }
  return answer;
}

bool RepositoryCare::isRecovering() {
  return numberOf(store_.value(Store::Table::settings, "recoverMode")) != 0;
}

std::uint64_t RepositoryCare::quotaBytes() {
  return static_cast<std::uint64_t>(numberOf(store_.value(Store::Table::profile, "QuotaMB"))) << 20;
}

EngineAnswer RepositoryCare::mayGrow() {
  const std::uint64_t quota = quotaBytes();
  if (quota > 0 && size_ > quota) {
    return {Health::full, "The quota for the backup is used up. Raise it, or back up less."};
  }
  return {};
}

void RepositoryCare::grew(std::uint64_t bytes) { size_ += bytes; }

void RepositoryCare::noteGood() {
  store_.setValue(Store::Table::settings, "lastGoodBackup", std::to_string(timeOfDay()));
}

// A clock that was set back would put off what is due for as long as it was set back by.
bool RepositoryCare::isDue(const std::string& key, double interval) {
  const double last = numberOf(store_.value(Store::Table::settings, key));
  const double now = timeOfDay();
  if (last == 0 || last > now) {
    did(key);
    return false;
  }
  return now - last >= interval;
}

void RepositoryCare::did(const std::string& key) {
  store_.setValue(Store::Table::settings, key, std::to_string(timeOfDay()));
}

// Whoever has the turn may wait for the lane whose thread this is, so this does not wait for the turn.
std::optional<EngineAnswer> RepositoryCare::lookAfter(EngineJob& job) {
  const std::unique_lock turn(turn_, std::try_to_lock);
  if (!turn) {
    return std::nullopt;
  }
  const bool hasFailed = !watch_.standing();
  if (hasFailed || isDue("lastProbe", times_.probe)) {
    did("lastProbe");
    EngineAnswer answer = engine_.probe(job);
    if (answer) {
      answer = measure(job);
    }
    if (answer && mayGrow()) {
      noteGood();
    }
    return answer;
  }
  if (isDue("lastForget", times_.forget)) {
    const bool isLong = isDue("lastForgetFew", times_.forgetFew);
    did("lastForget");
    if (isLong) {
      did("lastForgetFew");
    }
    return forgetDue(isLong ? 1 : kManySnapshots, job);
  }
  if (isDue("lastPrune", times_.prune)) {
    did("lastPrune");
    EngineAnswer answer = engine_.unlock(job);
    answer = answer ? engine_.prune(job) : answer;
    return answer ? measure(job) : answer;
  }
  if (isDue("lastCheck", times_.check)) {
    const auto part = static_cast<unsigned>(numberOf(store_.value(Store::Table::settings, "checkPart")));
    store_.setValue(Store::Table::settings, "checkPart", std::to_string((part + 1) % kCheckParts));
    return checkInTurn(part % kCheckParts + 1, kCheckParts, job).answer;
  }
  if (isDue("lastDrill", times_.drill)) {
    return drillInTurn(kDrillFiles, job).answer;
  }
  return std::nullopt;
}

EngineAnswer RepositoryCare::forgetDue(std::size_t fewest, EngineJob& job, std::size_t* gone) {
  Store::Retention retention;
  if (const double days = numberOf(store_.value(Store::Table::settings, "keepDeletedDays")); days > 0) {
    retention.keepDeleted = days * 86400;
  }
  Gathering gathering(store_, engine_, files_);
  if (const EngineAnswer answer = gathering.run(timeOfDay(), retention, job); !answer) {
    return answer;
  }
  std::vector<SnapshotRecord> snapshots = store_.forgettable(timeOfDay(), retention);
  const std::optional<RepositoryConfig> configuration = files_.configuration();
  const std::uint32_t former = configuration ? configuration->formerHighest : 0;
  std::erase_if(snapshots, [&](const SnapshotRecord& snapshot) { return snapshot.number <= former; });
  if (snapshots.size() < fewest) {
    return {};
  }
  std::vector<std::string> ids;
  std::vector<std::uint32_t> numbers;
  for (const SnapshotRecord& snapshot : snapshots) {
    ids.push_back(snapshot.id);
    numbers.push_back(snapshot.number);
  }
  EngineAnswer answer = engine_.forget(ids, job);
  if (answer.health == Health::locked) {
    answer = engine_.unlock(job);
    answer = answer ? engine_.forget(ids, job) : answer;
  }
  if (answer) {
    store_.removeSnapshots(numbers);
    if (gone != nullptr) {
      *gone = numbers.size();
    }
  }
  return answer;
}

RepositoryCare::CheckEnd RepositoryCare::check(unsigned part, unsigned parts, EngineJob& job) {
  const std::lock_guard turn(turn_);
  return checkInTurn(part, parts, job);
}

RepositoryCare::CheckEnd RepositoryCare::checkInTurn(unsigned part, unsigned parts, EngineJob& job) {
  CheckEnd end;
  CheckAnswer found = engine_.check(part, parts, job);
  if (found.health == Health::locked && engine_.unlock(job)) {
    found = engine_.check(part, parts, job);
  }
  end.answer = found;
  if (!found.damagedPacks.empty()) {
    end.answer = giveUpDamaged(found.damagedPacks, end.damagedFiles, job);
    end.sentence = "The repository is damaged: " + std::to_string(end.damagedFiles.size()) +
                   " files have lost a part of what was stored and are stored anew.";
    if (!end.answer) {
      end.sentence += " Not all of the damage can be taken out: " + end.answer.detail;
    }
    end.answer = {};  // what is known of the damage is dealt with file by file
    alert(end.sentence);
  } else if (found) {
    end.ok = true;
    end.sentence = parts == 0 ? "The structure of the repository is whole."
                              : "The structure and the stored bytes that were read are whole.";
  } else {
    end.sentence = found.detail;
    if (found.health == Health::damaged) {
      alert(found.detail);
    }
  }
  if (end.ok || !end.damagedFiles.empty() || found.health == Health::damaged) {
    did("lastCheck");
    store_.setValue(Store::Table::settings, "lastCheckResult", end.sentence);
  }
  return end;
}

// A batch that runs meanwhile would rest on what is damaged, and hold a lock that keeps the damage in the
// index. Nothing is taken out before it is known whose it was.
EngineAnswer RepositoryCare::giveUpDamaged(const std::vector<std::string>& packs,
                                           std::vector<std::string>& files, EngineJob& job) {
  const std::shared_ptr<void> stillness = holdStill(job);
  std::vector<FoundEntry> found;
  if (const EngineAnswer answer = engine_.filesInPacks(packs, found, job); !answer) {
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

// Without its list of names a folder's files cannot be had back by their paths.
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

// What else uses the repository, a restore for instance, is waited for; what was killed may have left a lock.
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

DrillEnd RepositoryCare::drill(std::size_t files, EngineJob& job) {
  const std::lock_guard turn(turn_);
  return drillInTurn(files, job);
}

DrillEnd RepositoryCare::drillInTurn(std::size_t files, EngineJob& job) {
  Drill drill(store_, engine_);
  DrillEnd end = drill.run(files, job);
  if (end.answer) {
    did("lastDrill");
    store_.setValue(Store::Table::settings, "drillCompared", std::to_string(end.compared));
    store_.setValue(Store::Table::settings, "drillHashed", std::to_string(end.hashed));
    store_.setValue(Store::Table::settings, "drillFailed", std::to_string(end.failed.size()));
    store_.setValue(Store::Table::settings, "lastDrillResult", end.sentence());
    if (!end.failed.empty()) {
      alert(end.sentence());
      lostFiles();
      checkInTurn(1, 1, job);
    }
  }
  return end;
}

}  // namespace keldane
