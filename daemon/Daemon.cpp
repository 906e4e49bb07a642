#include "daemon/Daemon.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <sstream>

#include "daemon/Clock.h"
#include "platform/syslog/Format.h"

namespace keldane {

namespace {

// Settings that are on unless somebody switches them off.
constexpr std::string_view kOnByDefault[] = {"enabled", "automaticMode"};

// Values of "backupState" and "serviceState".
enum BackupStateNumber : std::uint32_t { kIdle = 0, kBackingUp = 1, kPaused = 2, kOff = 3 };
constexpr std::uint32_t kServiceRunning = 1;

std::int64_t timeOfDay() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// What no rule brings into the backup: what is made anew at each start, and what this daemon writes itself.
std::vector<std::string> policyFor(const DaemonOptions& options) {
  std::vector<std::string> policy = {"/dev", "/proc", "/run", "/sys"};
  for (const char* suffix : {"", "-wal", "-shm"}) {
    policy.push_back(options.store + suffix);
  }
  policy.push_back(options.socket);
  policy.push_back(options.socket + ".lock");
  return policy;
}

std::uint64_t numberFrom(const std::optional<std::string>& text) {
  std::uint64_t number = 0;
  if (text) {
    std::from_chars(text->data(), text->data() + text->size(), number);
  }
  return number;
}

}  // namespace

Daemon::Daemon(const DaemonOptions& options, std::function<void()> terminate)
    : verbose_(options.verbose),
      terminate_(std::move(terminate)),
      store_(options.store),
      rules_(store_, options.root, policyFor(options)),
      worker_(store_, rules_, std::make_unique<RecordingEngine>()),
      nodes_(store_, rules_, worker_) {
  goOnWithPause();
  tellWorker();
  worker_.start();
}

Daemon::~Daemon() { worker_.stop(); }

std::uint32_t Daemon::setting(const std::string& key) {
  const std::optional<std::string> stored = store_.value(Store::Table::settings, key);
  if (!stored) {
    return std::find(std::begin(kOnByDefault), std::end(kOnByDefault), key) != std::end(kOnByDefault) ? 1 : 0;
  }
  return static_cast<std::uint32_t>(numberFrom(stored));
}

void Daemon::setSetting(const std::string& key, std::uint32_t value) {
  store_.setValue(Store::Table::settings, key, std::to_string(value));
  tellWorker();
}

void Daemon::pauseFor(std::uint32_t minutes) {
  const std::int64_t seconds = std::int64_t{minutes} * 60;
  const std::int64_t until = minutes == 0 ? 0 : timeOfDay() + seconds;
  store_.setValue(Store::Table::settings, "pausedUntil",
                  std::to_string(until) + " " + std::to_string(seconds));
  pausedUntil_ = minutes == 0 ? 0 : secondsSinceBoot() + seconds;
  tellWorker();
}

// The time of day is all that a pause can be kept by while no daemon runs. Should it have been set meanwhile,
// the pause is at least no longer than it was asked to be.
void Daemon::goOnWithPause() {
  std::istringstream stored(store_.value(Store::Table::settings, "pausedUntil").value_or(""));
  std::int64_t until = 0;
  std::int64_t seconds = 0;
  stored >> until >> seconds;
  const std::int64_t left = std::min(until - timeOfDay(), seconds);
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
  worker_.setModes(modes);
}

std::uint64_t Daemon::quotaMegabytes() { return numberFrom(store_.value(Store::Table::profile, "QuotaMB")); }

PropertyList Daemon::state(const Sight& sight) {
  const BackupWorker::Progress progress = worker_.progress();
  const Store::Totals totals = store_.totals();
  const bool paused = pausedMinutes() > 0;
  const bool off = setting("enabled") == 0;
  const std::uint64_t quota = quotaMegabytes();
  const bool overQuota = setting("overQuotaTest") != 0 || (quota > 0 && totals.bytes > quota << 20);
  const std::uint32_t number = off                          ? kOff
                               : paused                     ? kPaused
                               : progress.pendingFiles == 0 ? kIdle
                                                            : kBackingUp;
  const bool isSeen = !progress.currentFile.empty() && sight.sees(progress.currentFile);
  const std::uint32_t service = setting("serviceState");
  std::string status = off      ? "Backup is switched off"
                       : paused ? "Paused"
                       : progress.pendingFiles == 0
                           ? "Up to date"
                           : stringWithFormat("Backing up: %llu files to go", progress.pendingFiles);
  return PropertyList::dictionary({
      {"backedUpFileCount", totals.files},
      {"backedupFileSize", totals.bytes},
      {"backupState", number},
      {"currentBackupFile", isSeen ? progress.currentFile : std::string()},
      {"currentRestoreFile", ""},
      {"currentRestoreJob", 0U},
      {"isBackupNeeded", progress.pendingFiles > 0},
      {"lowerPriorityMode", setting("lowerPriorityMode") != 0},
      {"paused", paused},
      {"pendingFileCount", progress.pendingFiles},
      {"pendingFileSize", progress.pendingBytes},
      {"recoverMode", setting("recoverMode") != 0},
      {"serviceState", service == 0 ? kServiceRunning : service},
      {"statusString", status},
      {"isQuotaLimited", quota > 0},
      {"isOverQuota", overQuota},
      {"quotaMB", quota},
      {"backupControlFlags", setting("backupControl")},
  });
}

}  // namespace keldane
