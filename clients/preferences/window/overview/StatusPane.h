// What the daemon is doing, its account, its quota, and its switches.
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

/// The switches show what the daemon says once it has heard of all that the user wants; until then they stay
/// as the user has put them.
class StatusPane : public Gtk::Box {
 public:
  /// What the pane wants of the daemon.
  struct Wishes {
    std::function<void(std::int32_t minutes)> pause;
    std::function<void(bool on)> setAutomatic, setLowPriority;
  };

  explicit StatusPane(Wishes wishes);

  void show(const StatusSnapshot& snapshot);
  /// A sentence instead of the daemon's own words, for when it has none.
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
  std::uint32_t wished_ = 0;  // how many settings
  bool showing_ = false;      // so that what the daemon says is not taken for the user's wish
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
