// The daemon's activity, its account, its quota, and its switches.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/checkbutton.h>
#include <gtkmm/grid.h>
#include <gtkmm/label.h>
#include <gtkmm/progressbar.h>
#include <gtkmm/spinbutton.h>

#include <cstdint>
#include <functional>
#include <string>

#include "clients/preferences/worker/StatusSnapshot.h"
#include "config/SystemConfig.h"

namespace keldane {

/// The switches show the daemon's values once it has received all of the user's changes; until then they stay
/// as the user has set them.
class StatusPane : public Gtk::Box {
 public:
  /// The pane's requests to the daemon.
  struct Wishes {
    std::function<void(std::int32_t minutes)> pause;
    std::function<void(bool on)> setAutomatic, setLowPriority;
  };

  explicit StatusPane(Wishes wishes);

  void show(const StatusSnapshot& snapshot);
  /// Shows a sentence instead of the daemon's own words, for when it has none.
  void say(const std::string& sentence);

 private:
  void addRow(int number, const char* title, Gtk::Widget& value);
  void addControls();
  void setControlsSensitive(bool sensitive);
  void showProgress(const StatusSnapshot& snapshot);
  void showAccount(const StatusSnapshot& snapshot);
  void showQuota(const StatusSnapshot& snapshot);
  void showControls(const StatusSnapshot& snapshot);
  void pause(std::int32_t minutes);

  const Wishes wishes_;
  const SystemConfig config_ = SystemConfig::read();
  std::uint32_t wished_ = 0;  // number of settings that the user has changed
  bool showing_ = false;  // while the daemon's values are shown, so that they are not taken for the user's
  Gtk::Label status_, details_, file_, pausedFor_;
  Gtk::ProgressBar progress_, quotaBar_;
  Gtk::Grid values_;
  Gtk::Label backedUp_, account_, server_, computer_, quota_;
  Gtk::Box quotaBox_, controls_;
  Gtk::SpinButton minutes_;
  Gtk::Label minutesTitle_;
  Gtk::Button pause_, resume_;
  Gtk::CheckButton automatic_, lowPriority_;
};

}  // namespace keldane
