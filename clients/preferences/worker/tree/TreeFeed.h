// Keeps one of the window's trees as the daemon has it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "clients/preferences/worker/Updates.h"
#include "clients/preferences/worker/tree/NodeTree.h"

namespace keldane {

/// Delivers what a tree shows and what becomes different in it, in pieces. Made, used and destroyed on the
/// daemon's thread; its calls wait for the daemon without a limit.
class TreeFeed {
 public:
  using Deliver = std::function<void(Update)>;

  TreeFeed(TreeKind kind, Deliver deliver) : kind_(kind), deliver_(std::move(deliver)), tree_(kind) {}
  ~TreeFeed();
  TreeFeed(const TreeFeed&) = delete;
  TreeFeed& operator=(const TreeFeed&) = delete;

  /// Null while the daemon is away.
  void setDaemon(const std::shared_ptr<KeldaneProxy>& daemon);

  /// Shows the tree as it was, or, without a function, as it is; see NodeTree.
  void showPast(NodeTree::Past past);
  /// Shows the tree from this folder down.
  void open(const std::string& path);
  void lookInto(const std::string& folder) { send(tree_.refresh(folder)); }
  void close(const std::string& folder) { tree_.close(folder); }
  /// Reads all that is shown anew, a folder at a time.
  void refresh();

  /// Reads a path and what lies above it anew and delivers it; the path's own row, absent when the daemon no
  /// longer knows it.
  std::optional<NodeRow> reread(const std::string& path);
  /// Delivers what it changes, and what is selected then.
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
  std::vector<std::string> toRefresh_;  // folders, the next one last
};

}  // namespace keldane
