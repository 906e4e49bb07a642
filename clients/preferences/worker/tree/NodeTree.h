// The folders of one of the window's trees, as the daemon reports them.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Common/nodes/FileNodeProxy.h"
#include "clients/preferences/worker/Updates.h"

namespace keldane {

/// One tree of file nodes from "/" down, of which the window sees a folder and everything below it. A folder
/// is loaded when it is opened and dropped when it is closed. Used on the daemon's thread alone; its calls
/// wait for the daemon's answers.
///
/// A restore tree shows what a restore browser lists, everything else that is stored, and the folders that
/// lead there. Its nodes carry the selection. A folder passes its selection on to children that are found
/// later.
class NodeTree {
 public:
  explicit NodeTree(TreeKind kind = TreeKind::rules) : kind_(kind) {}

  /// The content of a folder at a time, as an array of node dictionaries; absent when nobody answers.
  using Past = std::function<PropertyList(const std::string& folder)>;
  /// After the next `open`, folders show their content of that time, or, without a function, their present
  /// content.
  void setPast(Past past) { past_ = std::move(past); }
  bool isPast() const { return past_ != nullptr; }

  /// Takes null while the daemon is away; nothing changes then.
  void setDaemon(const std::shared_ptr<KeldaneProxy>& daemon);
  /// Begins a new tree that is shown from this path down.
  void open(const std::string& path);
  /// Whether the tree was begun without a daemon and has to be opened again once there is one.
  bool needsOpening() const { return openedWithoutDaemon_; }
  const std::string& topPath() const { return topPath_; }
  /// The row at the top, read anew; absent before `open`.
  std::optional<NodeRow> top();

  /// Opens a folder, or reads an open one again, and returns the difference to what was told before.
  FolderChange refresh(const std::string& folder);
  /// Drops the content of a folder, at any depth.
  void close(const std::string& folder);
  /// The open folders, each after its parent.
  std::vector<std::string> openFolders() const;

  /// Reads a path and all folders above it, up to the top, anew. The path itself comes first, unless the
  /// daemon no longer knows it.
  std::vector<NodeRow> reread(const std::string& path);

  /// Selects or deselects a path and everything below it. Returns the rows whose selection has changed, below
  /// and above the path; the path itself comes first.
  std::vector<NodeRow> select(const std::string& path, bool selected);
  /// The topmost paths that are selected with everything below them.
  std::vector<std::string> selectedPaths();

 private:
  bool isShown(KeldaneFileNode& node) const;
  KeldaneFileNode::Pointer contentOf(const std::string& folder) const;
  std::set<const KeldaneFileNode*> takeChildren(KeldaneFileNode& node, const KeldaneFileNode::ChildList& told,
                                                FolderChange& change);
  NodeRow rowOf(KeldaneFileNode& folder, KeldaneFileNode& child) const;
  KeldaneFileNode::Pointer nodeAt(const std::string& path);
  NodeRow rowOf(const KeldaneFileNode::Pointer& node) const;

  const TreeKind kind_;
  Past past_;
  std::shared_ptr<KeldaneProxy> daemon_;
  KeldaneFileNodeProxy::Pointer root_;
  std::string topPath_;
  bool openedWithoutDaemon_ = false;
  std::map<std::string, bool> open_;  // value: whether the rows of the folder have been told
};

}  // namespace keldane
