// The window of the preferences program.
#pragma once

#include <gtkmm/applicationwindow.h>
#include <gtkmm/infobar.h>
#include <gtkmm/stack.h>
#include <gtkmm/stacksidebar.h>

#include <functional>
#include <optional>
#include <string>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/Lookout.h"
#include "clients/preferences/window/overview/OverviewPage.h"
#include "clients/preferences/window/restore/RestorePage.h"
#include "clients/preferences/window/rules/RulesPage.h"
#include "clients/preferences/window/setup/SetupWindow.h"
#include "clients/preferences/window/storage/StoragePage.h"

namespace keldane {

/// Shows what the daemon's threads deliver and hands on the user's requests. It never waits for them, and it
/// says so when they get no answer.
class PreferencesWindow : public Gtk::ApplicationWindow {
 public:
  /// Tells a sentence to a person who does not look at the window, and where it leads.
  using Tell = TellPerson;

  PreferencesWindow(const DaemonBundle& daemon, AlertKeeper& alerts, Tell tell);
  ~PreferencesWindow() override;
  PreferencesWindow(const PreferencesWindow&) = delete;
  PreferencesWindow& operator=(const PreferencesWindow&) = delete;

  void go(const WindowPlace& place);
  /// Whether a restore is being followed. Its end is told even when the window is closed.
  bool isRestoring() const { return restore_.isRestoring(); }
  /// Ends the dealings with the daemon. Returns false when they hang; the process is then to be ended at
  /// once.
  bool end() { return desk_.end(); }

 private:
  void addPages();
  /// Makes the Tab key go from the list of pages into the page that shows.
  void leaveSidebarByTab();
  void receive(const Update& update);
  void receive(const StatusSnapshot& snapshot);
  void receive(const TopRow& top);
  void receive(const FolderChange& change);
  void receive(const Refusal& refusal);
  void receive(const Selection& selection);
  void receive(const PathAnswer& answer);
  void receive(const MissingAnswer& answer);
  void watchDaemon();
  void showStatus();
  void askForRepository();
  void showSetup();
  void offerSetup();

  /// Whether the daemon is connected and answers.
  bool isThere() const { return answers_ && status_ && status_->connected; }
  void tellOfTrouble();

  AlertKeeper& alerts_;
  const Tell tell_;
  DaemonDesk desk_;
  std::optional<StatusSnapshot> status_;
  PropertyList repository_;  // the daemon's last answer about it
  bool answers_ = true, asksForRepository_ = false, setupOffered_ = false;
  int turnsToRepository_ = 0;
  sigc::connection watch_;
  Gtk::Box content_, pages_;
  Gtk::InfoBar refusal_;
  Gtk::Label refusalText_;
  Gtk::StackSidebar sidebar_;
  Gtk::Stack stack_;
  Gtk::ScrolledWindow restorePlace_, rulesPlace_;
  OverviewPage overview_;
  RestorePage restore_;
  StoragePage storage_;
  RulesPage rules_;
  SetupWindow setup_;
};

}  // namespace keldane
