// Changes the key, after explaining what that does and what it does not do.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>

#include <functional>

#include "clients/preferences/window/DaemonDesk.h"

namespace keldane {

class KeyChangePane : public Gtk::Box {
 public:
  /// `changed` is called when a new key is in use, which the person is to copy.
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
