// The updates that the daemon's thread sends to the window.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "clients/preferences/worker/StatusSnapshot.h"
#include "clients/preferences/worker/tree/NodeRow.h"

namespace keldane {

/// The folder at the top of the tree. The tree begins anew when `fresh` is set.
struct TopRow {
  NodeRow row;
  bool fresh = false;
  TreeKind tree = TreeKind::rules;
};

/// A row and the path of the sibling before which it belongs; an empty path stands for the end. It is added
/// after that sibling, so rows come from the last to the first.
struct AddedRow {
  NodeRow row;
  std::string before;
};

/// The changes in a folder whose content is shown; also sent when there are none.
struct FolderChange {
  std::string folder;
  std::vector<AddedRow> added;
  std::vector<NodeRow> changed;
  std::vector<std::string> removed;  ///< paths
  TreeKind tree = TreeKind::rules;
};

/// The paths that are selected to be restored in the tree; only the topmost ones.
struct Selection {
  std::vector<std::string> paths;
};

/// A setting, or, with a path, a rule that the daemon did not accept.
struct Refusal {
  std::string path;
  std::string state;  ///< the daemon's word for the path
};

/// The daemon's report on one path when it is asked for that path alone; `node` is absent when it knows
/// nothing.
struct PathAnswer {
  std::string path;
  PropertyList node;
};

/// Deleted files of a folder that are only in the backup now: an array of node dictionaries.
struct MissingAnswer {
  std::string folder;
  PropertyList nodes;
};

using Update =
    std::variant<StatusSnapshot, TopRow, FolderChange, Refusal, Selection, PathAnswer, MissingAnswer>;

}  // namespace keldane
