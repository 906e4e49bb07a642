// What a person is told who does not look at the window, and how often.
#pragma once

#include <array>
#include <map>
#include <set>
#include <string>

#include "clients/preferences/words/Translation.h"

namespace keldane {

enum class AlertKind {
  noBackup,  ///< nothing was stored for days
  storage,   ///< the place of the backup is full, missing or wrong
  drill,     ///< a trial of a restore failed
  restore,   ///< a restore has ended
};

struct AlertSwitch {
  AlertKind kind;
  const char* key;    ///< in the user's preferences
  const char* title;  ///< not yet translated
};

inline constexpr std::array kAlertSwitches{
    AlertSwitch{AlertKind::noBackup, "TellNoBackup", marked("Nothing was stored for three days")},
    AlertSwitch{AlertKind::storage, "TellStorage",
                marked("The place of the backup is full, missing or wrong")},
    AlertSwitch{AlertKind::drill, "TellDrill", marked("A trial of a restore has failed")},
    AlertSwitch{AlertKind::restore, "TellRestore", marked("A restore is done")},
};

/// Tells the same thing once a day, also when the program was ended meanwhile, and nothing of a kind that is
/// switched off. A value.
class Alerts {
 public:
  /// Reads those of this user. The call takes as long as the disk does.
  static Alerts read();
  /// Keeps them for the next time. The call takes as long as the disk does; the entries of others stay.
  void write() const;

  bool isOn(AlertKind kind) const { return !off_.contains(kind); }
  void setOn(AlertKind kind, bool on);
  /// Whether it may be told at this time, in seconds since the UNIX epoch; then it counts as told. `subject`
  /// is the same for what is the same trouble; empty for what is told each time.
  bool mayTell(AlertKind kind, const std::string& subject, double now);

  /// Notes that the daemon was reached at this time. True when that is to be written, which is once an hour.
  bool noteReached(double now);
  /// When the daemon was last reached, an hour at most before it was; 0 for never.
  double lastReached() const { return lastReached_; }

 private:
  std::set<AlertKind> off_;
  std::map<std::string, double> told_;
  double lastReached_ = 0;  // seconds since the UNIX epoch
};

}  // namespace keldane
