// The window of the preferences program.
#pragma once

#include <gtkmm/applicationwindow.h>
#include <gtkmm/infobar.h>
#include <gtkmm/separator.h>

#include <chrono>
#include <memory>
#include <optional>

#include "clients/preferences/window/Mailbox.h"
#include "clients/preferences/window/RulesPane.h"
#include "clients/preferences/window/StatusPane.h"
#include "clients/preferences/worker/DaemonThread.h"

namespace keldane {

/// Shows what the daemon's thread delivers and hands on what the user wants. Never waits for that thread;
/// says so when it does not answer.
class PreferencesWindow : public Gtk::ApplicationWindow {
 public:
  explicit PreferencesWindow(std::shared_ptr<Bundle> bundle);
  ~PreferencesWindow() override;
  PreferencesWindow(const PreferencesWindow&) = delete;
  PreferencesWindow& operator=(const PreferencesWindow&) = delete;

  /// Ends the dealings with the daemon; false when they hang. Then the process is to be ended at once.
  bool end();

 private:
  void receive(const Update& update);
  void receive(const StatusSnapshot& snapshot);
  void receive(const TopRow& top) { rules_.setTop(top); }
  void receive(const FolderChange& change) { rules_.change(change); }
  void receive(const Refusal& refusal);
  void watchDaemon();
  void showStatus();

  const std::shared_ptr<Mailbox> mailbox_;
  DaemonThread daemon_;
  std::optional<StatusSnapshot> status_;
  bool answers_ = true;
  sigc::connection watch_;
  Gtk::Box content_;
  Gtk::InfoBar refusal_;
  Gtk::Label refusalText_;
  StatusPane statusPane_;
  Gtk::Separator separator_;
  RulesPane rules_;
};

}  // namespace keldane
