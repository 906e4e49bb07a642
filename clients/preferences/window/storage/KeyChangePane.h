// Changes the key, after telling what that does and what it does not.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>

#include <functional>

#include "clients/preferences/window/DaemonDesk.h"

namespace keldane {

class KeyChangePane : public Gtk::Box {
 public:
  /// `changed` is called when another key is in use, of which copies are to be made.
  KeyChangePane(DaemonDesk& desk, std::function<void()> changed);

 private:
  void change();

  DaemonDesk& desk_;
  const std::function<void()> changed_;
  Gtk::Button begin_, change_, leave_;
  Gtk::Box question_, buttons_;
  Gtk::Label said_;
};

}  // namespace keldane
