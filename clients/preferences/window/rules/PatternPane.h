// Excludes files by a pattern of their names, after a preview of what that would exclude.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/entry.h>
#include <gtkmm/label.h>

#include <string>

#include "clients/preferences/window/DaemonDesk.h"

namespace keldane {

/// A pattern is a line of the daemon's list of exclusions.
class PatternPane : public Gtk::Box {
 public:
  explicit PatternPane(DaemonDesk& desk);

 private:
  void preview();
  void show(const OwnerAnswer& answer, const std::string& pattern);
  void leaveOut();

  DaemonDesk& desk_;
  Gtk::Box line_;
  Gtk::Label title_, found_;
  Gtk::Entry pattern_;
  Gtk::Button preview_, leaveOut_;
  std::string previewed_;  // the pattern whose preview is shown
};

}  // namespace keldane
