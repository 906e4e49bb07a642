// A line with the times of the backups, on which a person goes back.
#pragma once

#include <gtkmm/scale.h>

#include <functional>
#include <vector>

#include "clients/preferences/words/BackupTimes.h"

namespace keldane {

/// Has a mark for each backup, as far as there is room. Its value is the time of a backup, or its end, the
/// present. The arrow keys move from backup to backup. Used on the window's thread.
class TimeLine : public Gtk::Scale {
 public:
  /// `chosen` is called with the time of a backup, or with 0 for the present, when a person chooses.
  explicit TimeLine(std::function<void(double time)> chosen);

  /// Shows these times, in seconds since the UNIX epoch, oldest first.
  void show(const std::vector<double>& times);
  /// Moves to the last backup up to a time; 0 for the present. `chosen` is not called.
  void setTime(double time);

 private:
  bool move(Gtk::ScrollType type, double value);
  void choose(double time);
  void stand(double value);

  const std::function<void(double)> chosen_;
  BackupTimes times_;
  bool standing_ = false;  // the value is being set by this class
};

}  // namespace keldane
