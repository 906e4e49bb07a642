// Sorting of child lists, and access to a node's values by the names of their accessors.
#include <algorithm>

#include "Common/nodes/FileNode.h"
#include "platform/objects/Exceptions.h"

namespace keldane {

namespace {

using Node = KeldaneFileNode;
using Accessor = PropertyList (*)(Node&);

struct Key {
  std::string_view name;
  Accessor value;
};

constexpr Key kKeys[] = {
    {"fileName", [](Node& node) { return node.fileName(); }},
    {"displayName", [](Node& node) { return node.displayName(); }},
    {"isDirectory", [](Node& node) { return PropertyList(node.isDirectory()); }},
    {"selected", [](Node& node) { return PropertyList(node.selected()); }},
    {"backupFlags", [](Node& node) { return PropertyList(node.backupFlags()); }},
    {"backupPriority", [](Node& node) { return PropertyList(node.backupPriority()); }},
    {"simpleFlags", [](Node& node) { return PropertyList(node.simpleFlags()); }},
    {"backupColor", [](Node& node) { return PropertyList(node.backupColor()); }},
    {"backupColorString", [](Node& node) { return node.backupColorString(); }},
    {"backupDate", [](Node& node) { return node.backupDate(); }},
    {"version", [](Node& node) { return node.version(); }},
    {"purgeDate", [](Node& node) { return node.purgeDate(); }},
    {"totalCount", [](Node& node) { return PropertyList(node.totalCount()); }},
    {"count", [](Node& node) { return PropertyList(node.count()); }},
    {"size", [](Node& node) { return node.size(); }},
    {"sizeValue", [](Node& node) { return node.size(); }},
    {"state", [](Node& node) { return node.state(); }},
    {"path",
     [](Node& node) {
       const std::optional<std::string> path = node.path();
       return path ? PropertyList(*path) : PropertyList();
     }},
    {"uid", [](Node& node) { return PropertyList(node.uid()); }},
    {"uidString", [](Node& node) { return PropertyList(node.uidString()); }},
    {"gid", [](Node& node) { return PropertyList(node.gid()); }},
    {"gidString", [](Node& node) { return PropertyList(node.gidString()); }},
    {"inPolicy", [](Node& node) { return node.inPolicyValue(); }},
    {"inPolicyValue", [](Node& node) { return node.inPolicyValue(); }},
    {"isBackup", [](Node& node) { return PropertyList(node.isBackup()); }},
    {"isExcluded", [](Node& node) { return PropertyList(node.isExcluded()); }},
    {"isNotActive", [](Node& node) { return PropertyList(node.isNotActive()); }},
    {"isFolder", [](Node& node) { return PropertyList(node.isFolder()); }},
    {"isMissing", [](Node& node) { return PropertyList(node.isMissing()); }},
    {"isBundle", [](Node& node) { return PropertyList(node.isBundle()); }},
    {"showInRestoreBrowser", [](Node& node) { return PropertyList(node.showInRestoreBrowser()); }},
    {"backupFlagsString", [](Node& node) { return PropertyList(node.backupFlagsString()); }},
    {"simpleFlagsString", [](Node& node) { return PropertyList(node.simpleFlagsString()); }},
    {"backupDateString", [](Node& node) { return PropertyList(node.backupDateString()); }},
    {"description", [](Node& node) { return PropertyList(node.description()); }},
};

Accessor accessorFor(std::string_view name) {
  const auto* found =
      std::find_if(std::begin(kKeys), std::end(kKeys), [&](const Key& key) { return key.name == name; });
  if (found == std::end(kKeys)) {
    throw InvalidArgument("A file node has no value for the key " + std::string(name));
  }
  return found->value;
}

}  // namespace

PropertyList KeldaneFileNode::valueForKey(std::string_view key) { return accessorFor(key)(*this); }

void KeldaneFileNode::sortUsingDescriptors(const std::vector<SortDescriptor>& descriptors) {
  if (!children_) {
    return;
  }
  std::vector<Accessor> accessors;
  accessors.reserve(descriptors.size());
  for (const SortDescriptor& descriptor : descriptors) {
    accessors.push_back(accessorFor(descriptor.key));
  }
  // Each value is read once, instead of once for each comparison.
  struct Row {
    std::vector<PropertyList> values;
    Link node;
  };
  const auto before = [&](const Row& first, const Row& second) {
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
      const int order = descriptors[i].comparison(first.values[i], second.values[i]);
      if (order != 0) {
        return descriptors[i].ascending ? order < 0 : order > 0;
      }
    }
    return false;
  };
  std::vector<KeldaneFileNode*> nodes = {this};
  std::vector<Row> rows;
  while (!nodes.empty()) {
    KeldaneFileNode& node = *nodes.back();
    nodes.pop_back();
    if (!node.children_) {
      continue;
    }
    std::vector<Link>& children = node.changeableChildren("sortUsingDescriptors:").nodes_;
    rows.clear();
    for (const Link& child : children) {
      Row& row = rows.emplace_back();
      row.node = child;
      for (const Accessor value : accessors) {
        row.values.push_back(value(*child));
      }
      nodes.push_back(child.get());
    }
    std::stable_sort(rows.begin(), rows.end(), before);
    std::transform(rows.begin(), rows.end(), children.begin(), [](Row& row) { return std::move(row.node); });
  }
}

}  // namespace keldane
