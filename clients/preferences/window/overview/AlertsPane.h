// The choice of alerts for a person who does not look at the window.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/checkbutton.h>

#include "clients/preferences/worker/own/AlertKeeper.h"

namespace keldane {

/// A switch for each kind of alert. Used on the window's thread.
class AlertsPane : public Gtk::Box {
 public:
  explicit AlertsPane(AlertKeeper& keeper);

 private:
  AlertKeeper& keeper_;
};

}  // namespace keldane
