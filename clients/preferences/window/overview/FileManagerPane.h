// The choice of what file managers show of the backup.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/label.h>

#include <array>

#include "clients/preferences/window/DaemonDesk.h"
#include "config/FileManagerOptions.h"

namespace keldane {

/// One switch for each. The switches are this user's own and need no daemon; running file managers follow
/// them.
class FileManagerPane : public Gtk::Box {
 public:
  explicit FileManagerPane(DaemonDesk& desk);

 private:
  void read();
  void show(const FileManagerOptions& options);
  void write(std::size_t number);

  DaemonDesk& desk_;
  std::array<Gtk::CheckButton, kFileManagerSwitches.size()> switches_;
  Gtk::Label refusal_;
  std::array<bool, kFileManagerSwitches.size()> writing_{};
  unsigned wished_ = 0;   // number of switches that were moved
  bool showing_ = false;  // while the switches are set from the file, so that nothing is written
};

}  // namespace keldane
