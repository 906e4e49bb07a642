// The folders that one of the window's trees shows, as the daemon knows them.
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

/// One tree of file nodes from "/" down, of which the window sees a folder and what lies below. A folder is
/// loaded when it is looked into and dropped when it is closed. Used on the daemon's thread alone; asks the
/// daemon and waits for it.
///
/// A tree to restore from shows what a restore browser lists, what else is stored, and the folders that lead
/// there; its nodes carry the selection, which a folder hands down to what is found in it later.
class NodeTree {
 public:
  explicit NodeTree(TreeKind kind = TreeKind::rules) : kind_(kind) {}

  /// What was in a folder at some time, as an array of node dictionaries; absent when nobody answers.
  using Past = std::function<PropertyList(const std::string& folder)>;
  /// From the next `open` on folders have what they had then, or, without a function, what they have now.
  void setPast(Past past) { past_ = std::move(past); }
  bool isPast() const { return past_ != nullptr; }

  /// Null while the daemon is away: nothing changes then.
  void setDaemon(const std::shared_ptr<KeldaneProxy>& daemon);
  /// Begins a new tree that is shown from this path down.
  void open(const std::string& path);
  /// Whether the tree was begun without a daemon and has to be opened again once there is one.
  bool needsOpening() const { return openedWithoutDaemon_; }
  const std::string& topPath() const { return topPath_; }
  /// The row at the top, read anew; absent before `open`.
  std::optional<NodeRow> top();

  /// Looks into a folder, or again: what is different from what was told before.
  FolderChange refresh(const std::string& folder);
  /// Drops what is in a folder and below.
  void close(const std::string& folder);
  /// The folders that are looked into, each after the one that it lies in.
  std::vector<std::string> openFolders() const;

  /// Reads a path and what lies above it, up to the top, anew. The path itself comes first, unless the daemon
  /// no longer knows it.
  std::vector<NodeRow> reread(const std::string& path);

  /// Selects or deselects a path and all below. What is shown and has another selection for it: rows below
  /// and above the path, which comes first.
  std::vector<NodeRow> select(const std::string& path, bool selected);
  /// The topmost paths that are selected with all below them.
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
  std::map<std::string, bool> open_;  // whether the rows in the folder have been told
};

}  // namespace keldane
