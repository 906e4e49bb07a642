// Watches the backup while there is no window.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/words/Headline.h"
#include "clients/preferences/worker/own/AlertKeeper.h"

namespace keldane {

/// The place in the window to which a person is led.
struct WindowPlace {
  enum class Kind { overview, restore, versions, missing, storage, rules, setUp };
  Kind kind = Kind::overview;
  std::string path;  ///< absolute, for `versions` (a file) and `missing` (a folder)
};

/// Tells a person something while nobody looks at the window. `subject` is the same each time for the same
/// trouble; `place` is where the notification leads.
using TellPerson = std::function<void(AlertKind kind, const std::string& subject, const std::string& sentence,
                                      WindowPlace::Kind place)>;

/// Tells only the trouble that a person must know.
void tellOf(const Headline& headline, const TellPerson& tell);

/// Follows the daemon as the window does and shows nothing. It never lives beside the window, because only
/// one of them can follow the daemon in a process. Used on the window's thread.
class Lookout {
 public:
  Lookout(const DaemonBundle& daemon, AlertKeeper& alerts, TellPerson tell);
  ~Lookout();
  Lookout(const Lookout&) = delete;
  Lookout& operator=(const Lookout&) = delete;

  /// Ends the dealings with the daemon. Returns false when they hang; the process is then to be ended at
  /// once.
  bool end() { return desk_.end(); }

 private:
  void receive(const Update& update);
  void look();

  AlertKeeper& alerts_;
  const TellPerson tell_;
  DaemonDesk desk_;
  std::optional<StatusSnapshot> status_;
  bool asking_ = false;
  sigc::connection timer_;
};

}  // namespace keldane
