// Restores files from the backup.
#pragma once

#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/scrolledwindow.h>
#include <gtkmm/searchentry.h>
#include <gtkmm/stack.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "clients/preferences/window/DaemonDesk.h"
#include "clients/preferences/window/FolderChooser.h"
#include "clients/preferences/window/restore/ChoicesPane.h"
#include "clients/preferences/window/restore/EntryList.h"
#include "clients/preferences/window/restore/JobPane.h"
#include "clients/preferences/window/restore/LookPane.h"
#include "clients/preferences/window/tree/NodeTreeView.h"

namespace keldane {

/// Shows the backup as a tree, the results of a search, the deleted files of a folder, or the versions of one
/// file, and restores what is ticked there.
class RestorePage : public Gtk::Box {
 public:
  RestorePage(DaemonDesk& desk, JobPane::Finished finished);

  void setTop(const TopRow& top) { tree_.setTop(top); }
  void change(const FolderChange& change) { tree_.change(change); }
  void show(const Selection& selection);
  void show(const PathAnswer& answer);
  void show(const MissingAnswer& answer);
  /// Repeats the requests that were made while the daemon was away.
  void askAgain();
  /// Follows the restore that the daemon says is running, unless one is followed already.
  void followRunning(std::uint32_t job);
  /// The window is no longer seen, so copies that a person looked at are removed.
  void putAway() { look_.removeCopies(); }

  bool isRestoring() const { return job_.isFollowing(); }

  void showTree();
  /// Shows the versions of a file.
  void showVersions(const std::string& path);
  /// Shows the files that were deleted from a folder.
  void showMissing(const std::string& folder);

 private:
  enum class View { tree, found, versions, missing };

  void addHeading();
  void search();
  void showFound(const OwnerAnswer& answer, const std::string& pattern);
  void showList(View view, const std::string& title, std::vector<StoredEntry> entries);
  void askForBackups();
  void goBack(double time);
  void lookAt();
  std::optional<StoredEntry> entryToLookAt() const;
  void selectionChanged();
  void restore();

  DaemonDesk& desk_;
  View view_ = View::tree;
  bool opened_ = false;  // whether the tree was asked for
  double time_ = 0;      // the time whose state the tree shows; 0: now
  std::string wanted_;   // the file, folder or pattern that was asked about
  bool answered_ = true;
  std::vector<std::string> paths_;  // selected in the tree
  std::string chosen_;              // the file that the tree's cursor is on
  Gtk::Box heading_, buttons_;
  Gtk::SearchEntry search_;
  Gtk::Button all_, another_, versions_;
  FolderChooser chooser_;
  Gtk::Label title_, selected_;
  Gtk::Stack stack_;
  NodeTreeView tree_;
  EntryList list_;
  ChoicesPane choices_;
  Gtk::Button lookAt_, restore_;
  LookPane look_;
  JobPane job_;
};

}  // namespace keldane
