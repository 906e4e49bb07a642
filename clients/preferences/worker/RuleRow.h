// One file or folder as a row of the tree of rules.
#pragma once

#include <string>

#include "Common/FileNode.h"

namespace keldane {

/// Texts that can be shown as they are, and what the check box is like. A value: made on the daemon's thread,
/// read on the window's.
struct RuleRow {
  std::string path;
  std::string name, state, size, date;
  bool checked = false;   ///< belongs into the backup
  bool partly = false;    ///< there are rules below that say otherwise
  bool enabled = false;   ///< may be changed
  bool isFolder = false;  ///< can be looked into
  bool operator==(const RuleRow&) const = default;
};

/// `isFolder` is the caller's word: an answer that says so may be none that can be followed.
RuleRow ruleRow(KeldaneFileNode& node, bool isFolder);

}  // namespace keldane
