// What the daemon's thread tells the window.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "clients/preferences/worker/StatusSnapshot.h"
#include "clients/preferences/worker/tree/NodeRow.h"

namespace keldane {

/// The folder at the top of the tree; the tree begins anew with a fresh one.
struct TopRow {
  NodeRow row;
  bool fresh = false;
  TreeKind tree = TreeKind::rules;
};

/// A row before which sibling it belongs, by that one's path; at the end when that is empty. It is added
/// after the sibling, so that rows come from the last to the first.
struct AddedRow {
  NodeRow row;
  std::string before;
};

/// What has become different in a folder that is looked into; also sent when nothing has.
struct FolderChange {
  std::string folder;
  std::vector<AddedRow> added;
  std::vector<NodeRow> changed;
  std::vector<std::string> removed;  ///< paths
  TreeKind tree = TreeKind::rules;
};

/// What is selected to be restored in the tree, the topmost paths.
struct Selection {
  std::vector<std::string> paths;
};

/// The daemon did not take it: a setting, or, with a path, a rule.
struct Refusal {
  std::string path;
  std::string state;  ///< the daemon's word for the path
};

/// What the daemon tells of one path when it is asked for it alone; absent when it knows nothing of it.
struct PathAnswer {
  std::string path;
  PropertyList node;
};

/// What a folder had that is only in the backup now: node dictionaries, as an array.
struct MissingAnswer {
  std::string folder;
  PropertyList nodes;
};

using Update =
    std::variant<StatusSnapshot, TopRow, FolderChange, Refusal, Selection, PathAnswer, MissingAnswer>;

}  // namespace keldane
