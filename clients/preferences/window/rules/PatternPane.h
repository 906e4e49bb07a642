// Leaves out what has names of a kind, after showing what that would be.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/entry.h>
#include <gtkmm/label.h>

#include <string>

#include "clients/preferences/window/DaemonDesk.h"

namespace keldane {

/// A pattern is a line of the daemon's list of what is left out.
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
  std::string previewed_;  // what is shown
};

}  // namespace keldane
