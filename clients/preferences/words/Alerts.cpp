#include "clients/preferences/words/Alerts.h"

#include "platform/preferences/Preferences.h"

namespace keldane {

namespace {

constexpr char kAlertDomain[] = "com.keldane.preferences", kTold[] = "Told", kReached[] = "DaemonReached";
constexpr double kAlertInterval = 86400, kReachedInterval = 3600;

}  // namespace

Alerts Alerts::read() {
  Preferences::synchronize(kAlertDomain);
  Alerts alerts;
  for (const AlertSwitch& each : kAlertSwitches) {
    const PropertyList value = Preferences::copyValue(each.key, kAlertDomain);
    alerts.setOn(each.kind, !value || value.boolValue());
  }
  const PropertyList told = Preferences::copyValue(kTold, kAlertDomain);
  for (std::size_t i = 0; i < told.count(); ++i) {
    const auto [subject, date] = told.entry(i);
    if (date.isDate()) {
      alerts.told_.emplace(subject.string(), date.date().unixTime());
    }
  }
  if (const PropertyList reached = Preferences::copyValue(kReached, kAlertDomain); reached.isDate()) {
    alerts.lastReached_ = reached.date().unixTime();
  }
  return alerts;
}

void Alerts::write() const {
  for (const AlertSwitch& each : kAlertSwitches) {
    Preferences::setValue(each.key, isOn(each.kind) ? PropertyList() : PropertyList::boolean(false),
                          kAlertDomain);
  }
  PropertyList::Entries told;
  for (const auto& [subject, time] : told_) {
    told.emplace_back(subject, Date::fromUnixTime(time));
  }
  Preferences::setValue(kTold, told.empty() ? PropertyList() : PropertyList::dictionary(std::move(told)),
                        kAlertDomain);
  Preferences::setValue(kReached,
                        lastReached_ > 0 ? PropertyList(Date::fromUnixTime(lastReached_)) : PropertyList(),
                        kAlertDomain);
  Preferences::synchronize(kAlertDomain);
}

void Alerts::setOn(AlertKind kind, bool on) {
  if (on) {
    off_.erase(kind);
  } else {
    off_.insert(kind);
  }
}

// If the clock is set back, alerts told at a later time would silence new ones.
bool Alerts::mayTell(AlertKind kind, const std::string& subject, double now) {
  if (!isOn(kind) || subject.empty()) {
    return isOn(kind);
  }
  std::erase_if(told_,
                [&](const auto& each) { return now - each.second >= kAlertInterval || each.second > now; });
  return told_.emplace(subject, now).second;
}

bool Alerts::noteReached(double now) {
  if (now >= lastReached_ && now - lastReached_ < kReachedInterval) {
    return false;
  }
  lastReached_ = now;
  return true;
}

}  // namespace keldane
