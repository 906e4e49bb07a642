#include "clients/preferences/worker/own/AlertKeeper.h"

#include <ctime>
#include <thread>

namespace keldane {

void AlertKeeper::setOn(AlertKind kind, bool on) {
  if (alerts_.isOn(kind) != on) {
    alerts_.setOn(kind, on);
    write();
  }
}

bool AlertKeeper::mayTell(AlertKind kind, const std::string& subject) {
  const bool may = alerts_.mayTell(kind, subject, static_cast<double>(std::time(nullptr)));
  if (may && !subject.empty()) {
    write();
  }
  return may;
}

void AlertKeeper::noteReached() {
  if (alerts_.noteReached(static_cast<double>(std::time(nullptr)))) {
    write();
  }
}

// When several writes run at once, each writes the latest state.
void AlertKeeper::write() {
  {
    const ScopedLock guard(latest_->mutex);
    latest_->alerts = alerts_;
  }
  std::thread([latest = latest_] {
    const ScopedLock writing(latest->writing);
    Alerts alerts;
    {
      const ScopedLock guard(latest->mutex);
      alerts = latest->alerts;
    }
    alerts.write();
  }).detach();
}

}  // namespace keldane
