// The program's dealings with the daemon.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "client-state/BackupState.h"
#include "clients/core/BackupProgress.h"
#include "clients/preferences/worker/Updates.h"
#include "clients/preferences/worker/tree/TreeFeed.h"

namespace keldane {

/// Follows the daemon's state, carries out the window's requests, and delivers the updates to be shown. It
/// asks the daemon after each change, so the window shows what the daemon reports. Made, used and destroyed
/// on the daemon's thread; its calls wait for the daemon without a limit.
class DaemonSession {
 public:
  using Deliver = std::function<void(Update)>;

  DaemonSession(std::shared_ptr<Bundle> bundle, Deliver deliver);
  ~DaemonSession();
  DaemonSession(const DaemonSession&) = delete;
  DaemonSession& operator=(const DaemonSession&) = delete;

  /// Connects, and keeps trying.
  void begin();

  /// 0 minutes end a pause.
  void pause(std::int32_t minutes);
  void setAutomatic(bool on);
  void setLowPriority(bool on);

  void setEnabled(bool on);
  /// After a recovery nothing is stored until this is called.
  void endRecoverMode();

  /// Shows a tree from this folder down.
  void openFolder(const std::string& path, TreeKind tree = TreeKind::rules) { feed(tree).open(path); }
  /// Shows the restore tree as it was at an earlier time, or, without a function, as it is now.
  void showPast(NodeTree::Past past) { restore_.showPast(std::move(past)); }
  void lookInto(const std::string& folder, TreeKind tree = TreeKind::rules) { feed(tree).lookInto(folder); }
  void closeFolder(const std::string& folder, TreeKind tree = TreeKind::rules) { feed(tree).close(folder); }
  void setIncluded(const std::string& path, bool included);
  /// Adds a line to the list of exclusions.
  void leaveOut(const std::string& pattern);
  void setSelected(const std::string& path, bool selected) { restore_.select(path, selected); }

  /// Delivers a PathAnswer, unless the daemon is away.
  void askAbout(const std::string& path);
  /// Delivers a MissingAnswer, unless the daemon is away.
  void askForMissing(const std::string& folder);

 private:
  void connectionChanged();
  void stateChanged();
  void settle(bool (*taken)(const BackupState&, std::int32_t), std::int32_t wanted);
  void sendStatus();
  void sendAccount();
  void refuse(const Refusal& refusal);
  void refreshTrees();
  TreeFeed& feed(TreeKind tree) { return tree == TreeKind::rules ? rules_ : restore_; }

  const Deliver deliver_;
  BackupState state_;
  BackupProgress progress_;
  Account account_;
  std::uint32_t settingsMade_ = 0;
  TreeFeed rules_, restore_;
  std::shared_ptr<Timer> slowTimer_;
};

}  // namespace keldane
