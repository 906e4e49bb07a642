// Nodes from dictionaries, from the daemon and from the local file system, and back.
#include <algorithm>

#include "Common/calls/KeldProxy.h"
#include "Common/nodes/FileNode.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/objects/Absent.h"

namespace keldane {

void KeldaneFileNode::initWithDictionary(const PropertyList& dictionary) {
  // Children may be nested deeper than the stack allows, so the nodes on the way down wait in a list. Each
  // node is attached to its parent after it and all nodes below it were read.
  struct Level {
    Link node;
    PropertyList children;
    std::size_t next = 0;
  };
  const Pointer held = pointer();
  std::vector<Level> levels = {{shared_from_this(), readFields(dictionary)}};
  for (;;) {
    Level& level = levels.back();
    if (level.next < level.children.count()) {
      const Link child = level.node->newOfSameClass();
      PropertyList children = child->readFields(level.children[level.next++]);
      levels.push_back({child, std::move(children)});
      continue;
    }
    const Link whole = std::move(level.node);
    levels.pop_back();
    if (levels.empty()) {
      return;
    }
    levels.back().node->attach(whole);
  }
}

// Reads the node's own fields and returns the children's dictionaries, which are absent when there are none.
// It also makes an empty child list for them.
PropertyList KeldaneFileNode::readFields(PropertyList dictionary) {
  PropertyList::LookUp values(std::move(dictionary));
  cleanup();
  // The keys are looked up in the order in which `dictionary` writes them, because that is quickest.
  fileName_ = values["fileName"];
  displayName_ = values["displayName"];
  isDirectory_ = values["isDirectory"].boolValue();
  backupDate_ = values["backupDate"];
  version_ = values["version"];
  const PropertyList path = values["path"];
  path_ = path.isString() ? path : PropertyList();
  state_ = values["state"];
  size_ = values["size"].unsignedLongLongValue();
  backupFlags_ = values["backupFlags"].unsignedIntValue();
  simpleFlags_ = values["simpleFlags"].unsignedIntValue();
  backupColor_ = static_cast<std::int32_t>(values["backupColor"].unsignedIntValue());
  totalCount_ = values["totalCount"].unsignedIntValue();
  uid_ = values["uid"].unsignedIntValue();
  gid_ = values["gid"].unsignedIntValue();
  PropertyList children = values["children"];
  if (!children.isArray()) {
    return {};
  }
  renewChildren();
  return children;
}

PropertyList KeldaneFileNode::dictionary() const {
  static const auto& keys = *new PropertyList::Keys{
      "fileName", "displayName", "isDirectory", "backupDate",  "version",    "path", "state",
      "size",     "backupFlags", "simpleFlags", "backupColor", "totalCount", "uid",  "gid"};
  // An entry with an absent value is left out of the dictionary.
  return PropertyList::dictionary(
      keys, {fileName_, displayName_, PropertyList::boolean(isDirectory_), backupDate_, version_, path_,
             state_, PropertyList::unsignedInteger(size_), PropertyList::unsignedInteger(backupFlags_),
             PropertyList::unsignedInteger(simpleFlags_),
             PropertyList::unsignedInteger(static_cast<std::uint32_t>(backupColor_)),
             PropertyList::unsignedInteger(totalCount_), PropertyList::unsignedInteger(uid_),
             PropertyList::unsignedInteger(gid_)});
}

PropertyList KeldaneFileNode::recursiveDictionary() {
  // The nodes are listed with children after their parent. The dictionaries are made from the back, so that
  // the children's dictionaries are made first.
  struct Step {
    KeldaneFileNode* node;
    std::size_t parent;
    PropertyList::Array children;
  };
  std::vector<Step> steps = {{this, 0, {}}};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (const ChildList* list = steps[i].node->children()) {
      for (KeldaneFileNode& child : *list) {
        steps.push_back({&child, i, {}});
      }
    }
  }
  for (std::size_t i = steps.size(); i-- > 0;) {
    Step& step = steps[i];
    PropertyList value = step.node->dictionary();
    if (step.node->children_) {
      PropertyList::Entries entries;
      for (std::size_t k = 0; k < value.count(); ++k) {
        entries.push_back(value.entry(k));
      }
      std::reverse(step.children.begin(), step.children.end());
      entries.emplace_back("children", PropertyList::array(std::move(step.children)));
      value = PropertyList::dictionary(std::move(entries));
    }
    if (i == 0) {
      return value;
    }
    steps[step.parent].children.push_back(std::move(value));
  }
  return {};
}

KeldaneFileNode::Pointer KeldaneFileNode::fileNodeForPath(const std::string& path) {
  const Pointer node = create();
  bool isDirectory = false;
  const bool exists = FileManager::fileExistsAtPath(path, &isDirectory);
  node->setPath(path);
  node->setFileName(lastPathComponent(path));
  node->setDisplayName(FileManager::displayNameAtPath(path));
  node->setIsDirectory(isDirectory);
  if (!exists) {
    return node;
  }
  if (const std::optional<FileAttributes> attributes = FileManager::fileAttributesAtPath(path, false)) {
    node->setSizeValue(attributes->size);
    node->setUid(attributes->ownerAccountID);
    node->setGid(attributes->groupOwnerAccountID);
  }
  return node;
}

KeldaneFileNode::Pointer KeldaneFileNode::fileNodeForPath(const std::string& path, KeldaneProxy* fromProxy) {
  return fileNodeForPath(path, false, fromProxy);
}

KeldaneFileNode::Pointer KeldaneFileNode::fileNodeForPath(const std::string& path, bool withDirSizes,
                                                          KeldaneProxy* fromProxy) {
  const PropertyList answer = sendTo(
      fromProxy, [&](KeldaneProxy& proxy) { return proxy.dictionaryForPath(path, withDirSizes ? 1 : 0); });
  if (!answer) {
    return nullptr;
  }
  const Pointer node = create();
  node->initWithDictionary(answer);
  node->setPath(path);
  return node;
}

std::vector<KeldaneFileNode::Pointer> KeldaneFileNode::fileNodesForPaths(
    const std::vector<std::string>& paths, KeldaneProxy* fromProxy) {
  std::vector<Pointer> nodes;
  nodes.reserve(paths.size());
  for (const std::string& path : paths) {
    if (const Pointer node = fileNodeForPath(path, fromProxy)) {
      nodes.push_back(node);
    }
  }
  return nodes;
}

std::vector<KeldaneFileNode::Pointer> KeldaneFileNode::fileNodesForDictionaries(
    const PropertyList& dictionaries) {
  std::vector<Pointer> nodes;
  for (std::size_t i = 0; i < dictionaries.count(); ++i) {
    const PropertyList values = dictionaries[i];
    if (values.isDictionary()) {
      nodes.push_back(create());
      nodes.back()->initWithDictionary(values);
    }
  }
  return nodes;
}

}  // namespace keldane
