// The place and the state of the repository.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/grid.h>
#include <gtkmm/label.h>
#include <gtkmm/levelbar.h>
#include <gtkmm/passwordentry.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/spinbutton.h>
#include <gtkmm/spinner.h>

#include <functional>
#include <map>
#include <string>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/storage/KeyChangePane.h"
#include "clients/preferences/window/storage/KeyPane.h"
#include "clients/preferences/window/storage/MovePane.h"

namespace keldane {

/// The daemon's report on the repository, its checks, its key, and the limits of time and space.
class StoragePage : public Gtk::ScrolledWindow {
 public:
  /// `changed` is called when the daemon's report on the repository may have changed.
  StoragePage(DaemonDesk& desk, std::function<void()> setUp, std::function<void()> changed);

  /// The answer to `repository:`, which is absent when there is none.
  void show(const OwnerAnswer& answer);

 private:
  void addRow(const char* key, const char* title);
  void addRoom();
  void askForRoom(const std::string& location);
  void addChecks();
  void addKey();
  void addKeeping();
  void set(const char* key, const std::string& text);
  void check(const char* mode, const char* saying);
  void showCheck(const OwnerAnswer& answer);
  void addPassphrase();
  void askForSettings();
  void applySettings();
  void showSettings(const OwnerAnswer& answer);

  DaemonDesk& desk_;
  const std::function<void()> setUp_, changed_;
  Gtk::Box content_;
  Gtk::Grid values_, keeping_;
  std::map<std::string, Gtk::Label*> labels_;  // by the answer's keys
  Gtk::Box checks_, checking_;
  Gtk::Button checkNow_, checkData_, drill_, another_;
  Gtk::Spinner spinner_;
  Gtk::Label checkResult_;
  Gtk::Label roomTitle_, roomText_;
  Gtk::LevelBar room_;
  Gtk::Box roomBox_;
  MovePane move_;
  KeyPane key_;
  KeyChangePane keyChange_;
  Gtk::Box passphraseBox_;
  Gtk::PasswordEntry passphrase_, again_;
  Gtk::Button addPassphrase_;
  Gtk::Label passphraseResult_;
  Gtk::SpinButton keepDeleted_, quota_, alertAfter_;
  Gtk::Button apply_;
  Gtk::Label settingsResult_;
};

}  // namespace keldane
