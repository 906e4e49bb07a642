// Keeps the state of the alerts in the user's preferences.
#pragma once

#include <memory>
#include <string>

#include "clients/preferences/words/Alerts.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// The alerts of this program's user. Made and used on the program's first thread. Changes are written on a
/// thread of their own, so that nothing waits for the disk.
class AlertKeeper {
 public:
  /// Reads the alerts.
  AlertKeeper() : alerts_(Alerts::read()), latest_(std::make_shared<Latest>()) {}

  bool isOn(AlertKind kind) const { return alerts_.isOn(kind); }
  void setOn(AlertKind kind, bool on);
  /// Whether an alert may be told now; see Alerts.
  bool mayTell(AlertKind kind, const std::string& subject);
  void noteReached();
  double lastReached() const { return alerts_.lastReached(); }

 private:
  struct Latest {
    Mutex writing{{.name = "AlertKeeper.writing"}};  // held while the file is written, taken before the other
    Mutex mutex{{.name = "AlertKeeper.mutex", .leaf = true}};
    Alerts alerts KELDANE_GUARDED_BY(mutex);
  };
  void write();

  Alerts alerts_;
  const std::shared_ptr<Latest> latest_;
};

}  // namespace keldane
