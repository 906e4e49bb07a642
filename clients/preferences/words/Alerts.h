// Alerts for a person who does not look at the window, and how often they are told.
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
  const char* key;    ///< key in the user's preferences
  const char* title;  ///< not yet translated
};

inline constexpr std::array kAlertSwitches{
    AlertSwitch{AlertKind::noBackup, "TellNoBackup", marked("Nothing was stored for three days")},
    AlertSwitch{AlertKind::storage, "TellStorage",
                marked("The place of the backup is full, missing or wrong")},
    AlertSwitch{AlertKind::drill, "TellDrill", marked("A trial of a restore has failed")},
    AlertSwitch{AlertKind::restore, "TellRestore", marked("A restore is done")},
};

/// Allows each alert once a day, counted across restarts of the program, and none of a kind that is switched
/// off. A value.
class Alerts {
 public:
  /// Reads this user's alerts. The call takes as long as the disk does.
  static Alerts read();
  /// Writes them to the preferences. The call takes as long as the disk does; other programs' entries stay.
  void write() const;

  bool isOn(AlertKind kind) const { return !off_.contains(kind); }
  void setOn(AlertKind kind, bool on);
  /// Whether the alert may be told at `now`, in seconds since the UNIX epoch; if so, it counts as told.
  /// `subject` is the same for the same trouble; it is empty for alerts that are told each time.
  bool mayTell(AlertKind kind, const std::string& subject, double now);

  /// Notes that the daemon was reached at this time. Returns whether this must be written, which is so once
  /// an hour.
  bool noteReached(double now);
  /// The time when the daemon was last reached, or at most an hour before; 0 for never.
  double lastReached() const { return lastReached_; }

 private:
  std::set<AlertKind> off_;
  std::map<std::string, double> told_;
  double lastReached_ = 0;  // seconds since the UNIX epoch
};

}  // namespace keldane
