#include "daemon/care/RepositoryCare.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <filesystem>

#include "daemon/Clock.h"
#include "daemon/care/KeyChange.h"
#include "daemon/care/catalogue/Gathering.h"
#include "daemon/care/catalogue/Reconciliation.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr std::size_t kManySnapshots = 40;
constexpr unsigned kCheckParts = 8;
constexpr std::size_t kDrillFiles = 40;

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

// The number is never 0, which means none, and positive for clients that read it as signed.
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
    if (const EngineAnswer answer = KeyChange(engine_, files_).goOn(job); !answer) {
      return answer;
    }
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

// A set-up that was interrupted goes on with its key and its place.
EngineAnswer RepositoryCare::setUpHere(EngineJob& job) {
  if (!files_.configuration()) {
    if (files_.key().empty()) {
      files_.makeKey();
    }
    RepositoryConfig configuration = newComputer();
    configuration.location = firstLocation.empty() ? files_.folder().localRepository() : firstLocation;
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

// A time in the future counts as due: otherwise a clock that was set back would delay the upkeep by as much.
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

// The thread that has the turn may be waiting for the lane of this thread, so this does not wait for the
// turn.
std::optional<EngineAnswer> RepositoryCare::lookAfter(EngineJob& job) {
  if (!turn_.try_lock()) {
    return std::nullopt;
  }
  const ScopedLock turn(turn_, std::adopt_lock);
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
  const EngineAnswer answer = forgetAll(snapshots, job);
  if (answer && gone != nullptr) {
    *gone = snapshots.size();
  }
  return answer;
}

EngineAnswer RepositoryCare::forgetAll(const std::vector<SnapshotRecord>& snapshots, EngineJob& job) {
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
  }
  return answer;
}

RepositoryCare::CheckEnd RepositoryCare::check(unsigned part, unsigned parts, EngineJob& job) {
  const ScopedLock turn(turn_);
  return checkInTurn(part, parts, job);
}

DrillEnd RepositoryCare::drill(std::size_t files, EngineJob& job) {
  const ScopedLock turn(turn_);
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
      checkInTurn(1, 1, job);
      lostFiles();
    }
  }
  return end;
}

}  // namespace keldane
