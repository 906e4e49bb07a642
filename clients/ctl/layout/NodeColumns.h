// One file or folder as a row of a listing.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Common/nodes/FileNode.h"
#include "clients/ctl/terminal/Terminal.h"

namespace keldane {

/// The style of printed rows.
struct RowStyle {
  bool allFlags = false;
  std::size_t columns = 0;  ///< columns for a row, without the flags in full; 0: no limit
};

/// Eight characters, each a letter or "-": d folder, s selected for the backup, b backed up, + and x included
/// or excluded by a rule of its own, p barred by the policy, m deleted here, and the priority, if any.
std::string shortFlags(const KeldaneFileNode& node);

/// The name in the colour of its state, with a slash after a folder's.
std::string coloredName(const std::string& name, const KeldaneFileNode& node, const Terminal& terminal);

/// Flags, state, size and date, each in its column, then `lead` and the name, and the flags in full if
/// wanted. When there is not enough room for the name, columns are left out first, and then the beginning of
/// the name.
std::string row(KeldaneFileNode& node, const std::string& lead, const std::string& name,
                const RowStyle& style, const Terminal& terminal);

/// The daemon's dictionary of the node with its path, and the flags as text. A name that is not UTF-8 is
/// given as it is shown on a terminal, and the path's bytes in hexadecimal digits as "pathBytes".
nlohmann::ordered_json nodeJson(KeldaneFileNode& node);

}  // namespace keldane
