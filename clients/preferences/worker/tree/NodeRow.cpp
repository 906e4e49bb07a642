#include "clients/preferences/worker/tree/NodeRow.h"

#include "Common/DaemonText.h"
#include "clients/core/words/Printable.h"
#include "clients/core/words/Units.h"

namespace keldane {

NodeRow nodeRow(KeldaneFileNode& node, bool isFolder, TreeKind kind) {
  using namespace simple_flags;
  const std::uint32_t flags = node.simpleFlags();
  NodeRow row;
  row.path = node.path().value_or("");
  row.name = printable(node.displayName().string());
  row.state = printable(daemonText(node.state().string()));
  // A folder's size counts only what is loaded of it, so it is not shown.
  row.size = node.isDirectory() ? std::string() : bytesText(node.sizeValue());
  row.date = dateText(node.backupDate());
  if (kind == TreeKind::rules) {
    row.checked = (flags & kChecked) != 0;
    row.partly = (flags & kGrayed) != 0;
    row.enabled = (flags & kEnabled) != 0;
  } else {
    row.checked = node.selected() > 0;
    row.partly = node.selected() < 0;
    row.enabled = node.isDirectory() || node.backupDate();
  }
  // A folder's state describes its rules and says nothing of what can be restored from it.
  if (kind == TreeKind::restore && node.isDirectory() && !node.isMissing()) {
    row.state.clear();
  }
  row.isFolder = isFolder;
  row.isGone = node.isMissing();
  return row;
}

}  // namespace keldane
