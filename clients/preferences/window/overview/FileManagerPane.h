// What the file managers show of the backup.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/label.h>

#include <array>

#include "clients/preferences/window/DaemonDesk.h"
#include "config/FileManagerOptions.h"

namespace keldane {

/// A switch each. They are this user's own and need no daemon; file managers that run follow them.
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
  unsigned wished_ = 0;   // how often something was switched
  bool showing_ = false;  // what is in the file, so that nothing is to be written
};

}  // namespace keldane
