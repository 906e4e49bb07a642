#include "clients/preferences/worker/RuleRow.h"

#include "clients/core/Printable.h"
#include "clients/core/Units.h"

namespace keldane {

RuleRow ruleRow(KeldaneFileNode& node, bool isFolder) {
  using namespace simple_flags;
  const std::uint32_t flags = node.simpleFlags();
  RuleRow row;
  row.path = node.path().value_or("");
  row.name = printable(node.displayName().string());
  row.state = printable(node.state().string());
  // A folder's size is what is loaded of it, which says nothing.
  row.size = node.isDirectory() ? std::string() : bytesText(node.sizeValue());
  row.date = dateText(node.backupDate());
  row.checked = (flags & kChecked) != 0;
  row.partly = (flags & kGrayed) != 0;
  row.enabled = (flags & kEnabled) != 0;
  row.isFolder = isFolder;
  return row;
}

}  // namespace keldane
