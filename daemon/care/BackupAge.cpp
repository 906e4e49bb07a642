#include "daemon/care/BackupAge.h"

#include <charconv>
#include <chrono>
#include <cmath>

#include "daemon/Clock.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr double kDay = 86400;
constexpr double kUsualDays = 3;
constexpr std::chrono::seconds kInterval = std::chrono::minutes(1);

std::optional<double> numberFrom(const std::optional<std::string>& text) {
  double number = 0;
  if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc()) {
    return std::nullopt;
  }
  return number;
}

}  // namespace

void BackupAge::start() {
  thread_ = std::thread([this] {
    for (auto pause = std::chrono::seconds(0); rest(pause); pause = kInterval) {
      look();
    }
  });
}

bool BackupAge::rest(std::chrono::seconds time) {
  const ScopedLock guard(mutex_);
  return !changed_.waitFor(mutex_, time, [this]() KELDANE_REQUIRES(mutex_) { return stopping_; });
}

void BackupAge::stop() {
  {
    const ScopedLock guard(mutex_);
    stopping_ = true;
  }
  changed_.notifyAll();
  if (thread_.joinable()) {
    thread_.join();
  }
}

void BackupAge::look() {
  try {
    const std::optional<std::string> sentence = complaint(timeOfDay());
    if (sentence && !told_) {
      alert_(*sentence);
    }
    told_ = sentence.has_value();
  } catch (const std::exception& error) {
    systemLog("The age of the last backup cannot be found out: %s", error.what());
  }
}

std::optional<double> BackupAge::lastGood() {
  return numberFrom(store_.value(Store::Table::settings, "lastGoodBackup"));
}

// Before the first good backup, the age counts from the time when this first saw a rule.
std::optional<std::string> BackupAge::complaint(double now) {
  if (rules_.places().empty()) {
    return std::nullopt;
  }
  std::optional<double> since = lastGood();
  const bool isFirst = !since;
  if (isFirst) {
    since = numberFrom(store_.value(Store::Table::settings, "waitingSince"));
    if (!since) {
      store_.setValue(Store::Table::settings, "waitingSince", std::to_string(now));
      return std::nullopt;
    }
  }
  const double limit =
      numberFrom(store_.value(Store::Table::settings, "alertDays")).value_or(kUsualDays) * kDay;
  if (limit <= 0 || now - *since <= limit) {
    return std::nullopt;
  }
  const auto days = static_cast<long>(std::floor((now - *since) / kDay));
  return isFirst ? "Nothing has been backed up for " + std::to_string(days) + " days."
                 : "The last good backup is " + std::to_string(days) + " days old.";
}

}  // namespace keldane
