// One file or folder as a row of a tree.
#pragma once

#include <string>

#include "Common/nodes/FileNode.h"

namespace keldane {

/// What the boxes of a tree are for.
enum class TreeKind {
  rules,    ///< whether something belongs into the backup
  restore,  ///< what of the backup is selected to be restored
};

/// Texts that can be shown as they are, and what the check box is like. A value: made on the daemon's thread,
/// read on the window's.
struct NodeRow {
  std::string path;
  std::string name, state, size, date;
  bool checked = false;   ///< belongs into the backup, or is selected
  bool partly = false;    ///< there are rules below that say otherwise, or only a part below is selected
  bool enabled = false;   ///< may be changed
  bool isFolder = false;  ///< can be looked into
  bool isGone = false;    ///< no longer there, but in the backup
  bool operator==(const NodeRow&) const = default;
};

/// `isFolder` is the caller's word: an answer that says so may be none that can be followed.
NodeRow nodeRow(KeldaneFileNode& node, bool isFolder, TreeKind kind = TreeKind::rules);

}  // namespace keldane
