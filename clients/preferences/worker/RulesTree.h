// The folders that the window shows, as the daemon knows them.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Common/FileNodeProxy.h"
#include "clients/preferences/worker/Updates.h"

namespace keldane {

/// One tree of file nodes from "/" down, of which the window sees a folder and what lies below. A folder is
/// loaded when it is looked into and dropped when it is closed. Used on the daemon's thread alone; asks the
/// daemon and waits for it.
class RulesTree {
 public:
  /// Null while the daemon is away: nothing changes then.
  void setDaemon(const std::shared_ptr<KeldaneProxy>& daemon);
  /// Begins a new tree that is shown from this path down.
  void open(const std::string& path);
  /// Whether the tree was begun without a daemon and has to be opened again once there is one.
  bool needsOpening() const { return openedWithoutDaemon_; }
  const std::string& topPath() const { return topPath_; }
  /// The row at the top, read anew; absent before `open`.
  std::optional<RuleRow> top();

  /// Looks into a folder, or again: what is different from what was told before.
  FolderChange refresh(const std::string& folder);
  /// Drops what is in a folder and below.
  void close(const std::string& folder);
  /// The folders that are looked into, each after the one that it lies in.
  std::vector<std::string> openFolders() const;

  /// Reads a path and what lies above it, up to the top, anew. The path itself comes first, unless the daemon
  /// no longer knows it.
  std::vector<RuleRow> reread(const std::string& path);

 private:
  KeldaneFileNode::Pointer nodeAt(const std::string& path);
  RuleRow rowOf(const KeldaneFileNode::Pointer& node) const;

  std::shared_ptr<KeldaneProxy> daemon_;
  KeldaneFileNodeProxy::Pointer root_;
  std::string topPath_;
  bool openedWithoutDaemon_ = false;
  std::map<std::string, bool> open_;  // whether the rows in the folder have been told
};

}  // namespace keldane
