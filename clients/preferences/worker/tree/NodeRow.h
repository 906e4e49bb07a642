// One file or folder as a row of a tree.
#pragma once

#include <string>

#include "Common/nodes/FileNode.h"

namespace keldane {

/// The purpose of a tree's check boxes.
enum class TreeKind {
  rules,    ///< whether something belongs into the backup
  restore,  ///< whether something is selected to be restored
};

/// Texts that are ready to be shown, and the state of the check box. A value: made on the daemon's thread,
/// read on the window's.
struct NodeRow {
  std::string path;
  std::string name, state, size, date;
  bool checked = false;   ///< whether it belongs into the backup, or is selected
  bool partly = false;    ///< whether rules below say otherwise, or only a part below is selected
  bool enabled = false;   ///< whether it may be changed
  bool isFolder = false;  ///< whether it can be opened
  bool isGone = false;    ///< whether it is only in the backup now
  bool operator==(const NodeRow&) const = default;
};

/// The caller decides on `isFolder`: an answer may call something a folder that cannot be opened.
NodeRow nodeRow(KeldaneFileNode& node, bool isFolder, TreeKind kind = TreeKind::rules);

}  // namespace keldane
