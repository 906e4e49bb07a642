#include "daemon/Daemon.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <sstream>

#include "Common/calls/OwnerProtocol.h"
#include "daemon/Clock.h"
#include "platform/syslog/SystemLog.h"
#include "platform/text/Format.h"

namespace keldane {

namespace {

// The settings whose default is 1.
constexpr std::string_view kOneByDefault[] = {"enabled", "automaticMode", "serviceState"};

// Set once the administrator's default rules were taken over.
constexpr char kHasDefaultRules[] = "hasDefaultRules";

// Values of "backupState".
enum BackupStateNumber : std::uint32_t { kIdle = 0, kBackingUp = 1, kPaused = 2, kOff = 3 };

/// The paths that no rule can bring into the backup: those that the system makes anew at each start, and the
/// daemon's own files.
std::vector<std::string> policyFor(const DaemonOptions& options, const DataFolder& data) {
  std::vector<std::string> policy = {"/dev", "/proc", "/run", "/sys"};
  for (const char* suffix : {"", "-wal", "-shm"}) {
    policy.push_back(options.store + suffix);
  }
  for (const std::string& socket : {options.socket, ownerSocketPath(options.socket)}) {
    policy.push_back(socket);
    policy.push_back(socket + ".lock");
  }
  for (const std::string& own : {data.configuration(), data.key(), data.environment(), data.localRepository(),
                                 data.cache(), data.work(), data.manifests(), data.setAside()}) {
    policy.push_back(own);
  }
  for (const std::string& fixed : options.config.list("exclude", true)) {
    policy.push_back(fixed);
  }
  return policy;
}

DataFolder dataFolderOf(const DaemonOptions& options) {
  return {options.data.empty() ? std::filesystem::path(options.store).parent_path().string() : options.data};
}

std::uint64_t numberFrom(const std::optional<std::string>& text) {
  std::uint64_t number = 0;
  if (text) {
    std::from_chars(text->data(), text->data() + text->size(), number);
  }
  return number;
}

std::string filesText(std::uint64_t count) {
  return std::to_string(count) + (count == 1 ? " file" : " files");
}

}  // namespace

Daemon::Daemon(const DaemonOptions& options, const EngineFactory& engine, std::function<void()> terminate)
    : verbose_(options.verbose),
      config_(options.config),
      terminate_(std::move(terminate)),
      store_(options.store),
      files_(dataFolderOf(options)),
      rules_(store_, options.root, policyFor(options, files_.folder())),
      engine_(engine(files_)),
      watch_([this](const EngineAnswer& answer) {
        if (answer) {
          restores_.tryNow();
        }
        raiseAlert("repository", answer ? "The repository can be used again." : answer.detail);
      }),
      care_(store_, rules_, *engine_, files_, watch_),
      worker_(store_, rules_, *engine_, files_, watch_, care_, options.timing),
      restores_(store_, *engine_, files_.folder(),
                [this] {
                  if (restores_.current() == 0) {
                    worker_.reconsiderAll();  // the restored files must be looked at
                  }
                }),
      nodes_(store_, rules_, worker_),
      age_(store_, rules_, [this](const std::string& sentence) { raiseAlert("age", sentence); }) {
  takeConfiguration();
  care_.lostFiles = [this] { worker_.reconsiderAll(); };
  care_.holdStill = [this](const EngineJob& job) {
    return std::make_shared<BackupWorker::Stillness>(worker_.holdStill(&job));
  };
  care_.lostBytes = [this] { worker_.bytesLost(); };
  care_.alert = [this](const std::string& sentence) { raiseAlert("stored", sentence); };
  barRepository();
  goOnWithPause();
  tellWorker();
  worker_.start();
  restores_.start();
  age_.start();
}

Daemon::~Daemon() { stop(); }

void Daemon::stop() {
  age_.stop();
  restores_.stop();
  worker_.stop();
}

// A fixed value overrides the user's setting, and a default counts without one. The default rules are set
// only once, because the user may change them.
void Daemon::takeConfiguration() {
  struct Setting {
    const char* name;
    Store::Table table;
    const char* key;
  };
  static constexpr Setting kSettings[] = {
      {"keep-deleted-days", Store::Table::settings, "keepDeletedDays"},
      {"quota-mb", Store::Table::profile, "QuotaMB"},
      {"alert-days", Store::Table::settings, "alertDays"},
      {"automatic", Store::Table::settings, "automaticMode"},
      {"low-priority", Store::Table::settings, "lowerPriorityMode"},
  };
  for (const ConfigProblem& problem : config_.problems()) {
    systemLog("%s, line %u: %@", SystemConfig::kUsualFile, problem.line, problem.sentence);
  }
  for (const Setting& setting : kSettings) {
    if (const std::optional<ConfigValue> value = config_.value(setting.name)) {
      store_.administer(setting.table, setting.key, value->text, value->fixed);
    }
  }
  const std::optional<ConfigValue> location = config_.value("location");
  care_.firstLocation = location ? location->text : std::string();
  if (store_.value(Store::Table::settings, kHasDefaultRules)) {
    return;
  }
  for (const bool included : {true, false}) {
    for (const std::string& path : config_.list(included ? "include" : "exclude", false)) {
      if (!rules_.decide(path, true).ownRule) {
        rules_.setRule(path, included);
      }
    }
  }
  store_.setValue(Store::Table::settings, kHasDefaultRules, "1");
}

void Daemon::setAnnounce(Announce announce) {
  const ScopedLock guard(announceMutex_);
  announce_ = std::move(announce);
}

void Daemon::announce(const std::string& selector, const PropertyList& dictionary) const {
  const ScopedLock guard(announceMutex_);
  if (announce_) {
    announce_(selector, dictionary);
  }
}

void Daemon::raiseAlert(const std::string& kind, const std::string& sentence) const {
  systemLog("%@", sentence);
  announce("alertRaised:", PropertyList::dictionary({{"kind", kind}, {"text", sentence}}));
}

void Daemon::barRepository() {
  try {
    const std::optional<RepositoryConfig> configuration = files_.configuration();
    rules_.barRepository(configuration ? configuration->localFolder().value_or("") : "");
    isRemote_ = configuration && !configuration->localFolder();
    tellWorker();
  } catch (const std::exception& error) {
    systemLog("The configuration of the repository cannot be read: %s", error.what());
  }
}

std::uint32_t Daemon::computerNumber() const {
  try {
    const std::optional<RepositoryConfig> configuration = files_.configuration();
    return configuration ? configuration->computerNumber : 0;
  } catch (const std::exception&) {
    return 0;
  }
}

std::uint32_t Daemon::setting(const std::string& key) {
  const std::optional<std::string> stored = store_.value(Store::Table::settings, key);
  if (!stored) {
    return std::find(std::begin(kOneByDefault), std::end(kOneByDefault), key) != std::end(kOneByDefault) ? 1
                                                                                                         : 0;
  }
  return static_cast<std::uint32_t>(numberFrom(stored));
}

void Daemon::setSetting(const std::string& key, std::uint32_t value) {
  store_.setValue(Store::Table::settings, key, std::to_string(value));
  tellWorker();
}

void Daemon::pauseFor(std::uint32_t minutes) {
  const std::int64_t seconds = std::int64_t{minutes} * 60;
  const std::int64_t until = minutes == 0 ? 0 : static_cast<std::int64_t>(timeOfDay()) + seconds;
  store_.setValue(Store::Table::settings, "pausedUntil",
                  std::to_string(until) + " " + std::to_string(seconds));
  pausedUntil_ = minutes == 0 ? 0 : secondsSinceBoot() + seconds;
  tellWorker();
}

// While no daemon runs, a pause can be measured only by the time of day. If that was set meanwhile, the pause
// is at least not longer than it was asked to be.
void Daemon::goOnWithPause() {
  std::istringstream stored(store_.value(Store::Table::settings, "pausedUntil").value_or(""));
  std::int64_t until = 0;
  std::int64_t seconds = 0;
  stored >> until >> seconds;
  const std::int64_t left = std::min(until - static_cast<std::int64_t>(timeOfDay()), seconds);
  pausedUntil_ = left <= 0 ? 0 : secondsSinceBoot() + left;
}

std::uint32_t Daemon::pausedMinutes() const {
  const std::int64_t left = pausedUntil_ - secondsSinceBoot();
  return left <= 0 ? 0 : static_cast<std::uint32_t>((left + 59) / 60);
}

void Daemon::tellWorker() {
  BackupWorker::Modes modes;
  modes.enabled = setting("enabled") != 0;
  modes.automatic = setting("automaticMode") != 0;
  modes.lowerPriority = setting("lowerPriorityMode") != 0;
  modes.pausedUntil = pausedUntil_;
  modes.restsUntil = surroundings_.restsUntil(restRules(), isRemote_, secondsSinceBoot());
  worker_.setModes(modes);
}

Surroundings::Rules Daemon::restRules() {
  Surroundings::Rules rules;
  const auto kept = [this](const char* key, std::uint64_t usual) {
    const std::optional<std::string> value = store_.value(Store::Table::settings, key);
    return value ? numberFrom(value) : usual;
  };
  rules.restBelowPercent = static_cast<std::uint32_t>(kept("restBelowPercent", rules.restBelowPercent));
  rules.restOnMetered = kept("restOnMetered", rules.restOnMetered ? 1 : 0) != 0;
  rules.restInPowerSaver = kept("restInPowerSaver", rules.restInPowerSaver ? 1 : 0) != 0;
  return rules;
}

void Daemon::tellSurroundings(const Surroundings::Report& report) {
  surroundings_.tell(report, secondsSinceBoot());
  tellWorker();
}

std::string Daemon::restingBecause() {
  const std::int64_t now = secondsSinceBoot();
  return surroundings_.holds(now) ? surroundings_.reason(restRules(), isRemote_, now) : "";
}

// A word for clients that says why no pending file is stored until a user acts or a pause ends; empty when
// files are stored.
const char* Daemon::heldBy(const BackupWorker::Progress& progress) {
  if (setting("enabled") == 0) {
    return "off";
  }
  if (pausedMinutes() > 0) {
    return "paused";
  }
  if (care_.isRecovering()) {
    return "recovering";
  }
  return setting("automaticMode") == 0 && isAtRest(progress) ? "manual" : "";
}

// Whether all remaining work can be put off: files are pending, none of them is preferred, and nothing is
// left to be scanned.
bool Daemon::isAtRest(const BackupWorker::Progress& progress) {
  return !progress.hasPreferred && progress.placesToScan == 0 && progress.pendingFiles > 0;
}

std::string Daemon::statusFor(const std::string& held, const BackupWorker::Progress& progress,
                              std::uint64_t failures) {
  if (const std::optional<std::string> trouble = store_.trouble()) {
    return *trouble;
  }
  if (held == "off") {
    return "Backup is switched off";
  }
  if (held == "paused") {
    return "Paused";
  }
  if (care_.snapshotsToRead() > 0) {
    return stringWithFormat("Reading the repository: %llu of %llu backups",
                            std::uint64_t{care_.snapshotsRead()}, std::uint64_t{care_.snapshotsToRead()});
  }
  if (const EngineAnswer standing = watch_.standing(); !standing) {
    return standing.detail.empty() ? "The repository cannot be used" : standing.detail;
  }
  if (held == "recovering") {
    return "Recovered: nothing is backed up or forgotten until you resume";
  }
  if (const std::optional<std::string> complaint = age_.complaint(timeOfDay())) {
    return *complaint;
  }
  if (held == "manual") {
    return "Automatic backup is off: " + filesText(progress.pendingFiles) +
           (progress.pendingFiles == 1 ? " waits" : " wait");
  }
  if (const std::string because = restingBecause(); !because.empty() && isAtRest(progress)) {
    return "Resting: " + because + "; " + filesText(progress.pendingFiles) + " to go";
  }
  if (progress.placesToScan > 0) {
    return progress.pendingFiles == 0
               ? "Looking for what is to be backed up"
               : "Looking for what is to be backed up: " + filesText(progress.pendingFiles) + " so far";
  }
  if (progress.pendingFiles > 0) {
    return "Backing up: " + filesText(progress.pendingFiles) + " to go";
  }
  return failures == 0 ? "Up to date" : "Up to date, but " + filesText(failures) + " could not be backed up";
}

PropertyList Daemon::state(const PeerAccess& access) {
  // The progress is asked first, so that files which are stored meanwhile are counted below.
  const BackupWorker::Progress progress = worker_.progress();
  const bool isNeeded = progress.pendingFiles > 0 || progress.placesToScan > 0;
  const Store::Totals totals = store_.totals();
  const std::uint64_t failures = store_.failureCount();
  const std::string held = heldBy(progress);
  const std::string because = restingBecause();
  const bool isWorking = isNeeded && held.empty() && (because.empty() || !isAtRest(progress));
  const std::uint64_t quota = care_.quotaBytes();
  const bool overQuota = setting("overQuotaTest") != 0 || (quota > 0 && care_.repositorySize() > quota);
  const std::uint32_t number = held == "off"      ? kOff
                               : held == "paused" ? kPaused
                               : isWorking        ? kBackingUp
                                                  : kIdle;
  const std::string restored = restores_.currentFile();
  const auto seen = [&access](const std::string& path) {
    return !path.empty() && access.sees(path) ? path : std::string();
  };
  const EngineAnswer standing = watch_.standing();
  const std::optional<double> lastGood = age_.lastGood();
  return PropertyList::dictionary({
      {"backedUpFileCount", totals.files},
      {"backedupFileSize", totals.bytes},
      {"backupState", number},
      {"currentBackupFile", seen(progress.currentFile)},
      {"currentRestoreFile", access.isPrivileged() ? restored : seen(restored)},
      {"currentRestoreJob", restores_.current()},
      {"isBackupNeeded", isNeeded},
      {"lowerPriorityMode", setting("lowerPriorityMode") != 0},
      {"paused", pausedMinutes() > 0},
      {"pendingFileCount", progress.pendingFiles},
      {"pendingFileSize", progress.pendingBytes},
      {"recoverMode", setting("recoverMode") != 0},
      {"serviceState", setting("serviceState")},
      {"statusString", statusFor(held, progress, failures)},
      {"isQuotaLimited", quota > 0},
      {"isOverQuota", overQuota},
      {"quotaMB", quota >> 20},
      {"backupControlFlags", setting("backupControl")},
      {"health", healthWord(standing.health)},
      {"repositorySize", care_.repositorySize()},
      {"failureCount", failures},
      {"heldBy", held},
      {"storeTrouble", store_.trouble().value_or("")},
      // These two may be absent. They must stay the last, because clients number the keys.
      {"lastGoodBackup", lastGood ? PropertyList(Date::fromUnixTime(*lastGood)) : PropertyList()},
      {"restingBecause", because.empty() ? PropertyList() : PropertyList(because)},
  });
}

}  // namespace keldane
