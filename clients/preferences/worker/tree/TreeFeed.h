// Keeps one of the window's trees up to date with the daemon.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clients/preferences/worker/Updates.h"
#include "clients/preferences/worker/tree/NodeTree.h"

namespace keldane {

/// Delivers the rows of a tree and their changes, in pieces. Made, used and destroyed on the daemon's thread;
/// its calls wait for the daemon without a limit.
class TreeFeed {
 public:
  using Deliver = std::function<void(Update)>;

  TreeFeed(TreeKind kind, Deliver deliver) : kind_(kind), deliver_(std::move(deliver)), tree_(kind) {}
  ~TreeFeed();
  TreeFeed(const TreeFeed&) = delete;
  TreeFeed& operator=(const TreeFeed&) = delete;

  /// Takes null while the daemon is away.
  void setDaemon(const std::shared_ptr<KeldaneProxy>& daemon);

  /// Shows the tree as it was at an earlier time, or, without a function, as it is now; see NodeTree.
  void showPast(NodeTree::Past past);
  /// Shows the tree from this folder down.
  void open(const std::string& path);
  void lookInto(const std::string& folder) { send(tree_.refresh(folder)); }
  void close(const std::string& folder) { tree_.close(folder); }
  /// Reads all visible rows anew, one folder at a time.
  void refresh();

  /// Reads a path and all folders above it anew and delivers them. Returns the path's own row; absent when
  /// the daemon no longer knows it.
  std::optional<NodeRow> reread(const std::string& path);
  /// Delivers the changed rows and the new selection.
  void select(const std::string& path, bool selected);

 private:
  void sendTop(bool fresh);
  void send(FolderChange change);
  void sendRows(std::vector<NodeRow> rows);
  void refreshNextFolder();

  const TreeKind kind_;
  const Deliver deliver_;
  NodeTree tree_;
  bool hasDaemon_ = false;
  std::vector<std::string> toRefresh_;  // folders; the next one is at the end
};

}  // namespace keldane
