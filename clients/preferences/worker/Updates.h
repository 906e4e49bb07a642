// What the daemon's thread tells the window.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "clients/preferences/worker/RuleRow.h"
#include "clients/preferences/worker/StatusSnapshot.h"

namespace keldane {

/// The folder at the top of the tree; the tree begins anew with a fresh one.
struct TopRow {
  RuleRow row;
  bool fresh = false;
};

/// A row before which sibling it belongs, by that one's path; at the end when that is empty. It is added
/// after the sibling, so that rows come from the last to the first.
struct AddedRow {
  RuleRow row;
  std::string before;
};

/// What has become different in a folder that is looked into; also sent when nothing has.
struct FolderChange {
  std::string folder;
  std::vector<AddedRow> added;
  std::vector<RuleRow> changed;
  std::vector<std::string> removed;  ///< paths
};

/// The daemon did not take it: a setting, or, with a path, a rule.
struct Refusal {
  std::string path;
  std::string state;  ///< the daemon's word for the path
};

using Update = std::variant<StatusSnapshot, TopRow, FolderChange, Refusal>;

}  // namespace keldane
