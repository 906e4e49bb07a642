#include "Common/nodes/FileNode.h"

#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/objects/Exceptions.h"

namespace keldane {

void KeldaneFileNode::cleanup() {
  fileName_ = displayName_ = backupDate_ = version_ = purgeDate_ = state_ = PropertyList();
  image_.reset();
}

std::uint64_t KeldaneFileNode::sizeValue() {
  std::uint64_t total = 0;
  std::vector<KeldaneFileNode*> nodes = {this};
  while (!nodes.empty()) {
    KeldaneFileNode& node = *nodes.back();
    nodes.pop_back();
    total += node.size_;
    if (node.children_) {
      for (KeldaneFileNode& child : *node.children()) {
        nodes.push_back(&child);
      }
    }
  }
  return total;
}

std::optional<std::string> KeldaneFileNode::path() {
  // The path is built from the nearest ancestor with a stored path downwards. Each node on the way keeps its
  // own path.
  std::vector<Link> way;
  for (Link node = shared_from_this(); node && node->path_.string().empty(); node = node->parentLink()) {
    way.push_back(node);
  }
  for (; !way.empty(); way.pop_back()) {
    KeldaneFileNode& node = *way.back();
    const Link parent = node.parentLink();
    node.path_ = parent && parent->path_
                     ? PropertyList(appendPathComponent(parent->path_.string(), node.fileName_.string()))
                     : PropertyList();
  }
  return path_ ? std::optional(std::string(path_.string())) : std::nullopt;
}

void KeldaneFileNode::setPath(const std::string& path) {
  if (!parent_.expired()) {
    failForPathOfChild();
  }
  path_ = path;
}

void KeldaneFileNode::failForPathOfChild() {
  constexpr int kPathOfChildLine = 1073;
  throw AssertionFailure("-[KeldaneFileNode setPath:]", "Common/FileNode", kPathOfChildLine,
                         "You cannot set the path string of a node in a real hierarchy");
}

bool KeldaneFileNode::isEqual(KeldaneFileNode* other) {
  const std::optional<std::string> mine = path();
  return mine && other != nullptr && mine == other->path();
}

bool KeldaneFileNode::isBundle() { return childWithName("Contents") != nullptr; }

bool KeldaneFileNode::showInRestoreBrowser() {
  const std::optional<std::string> where = path();
  if (!where && !parent_.expired()) {
    failForPathOfChild();  // the nodes above have no path, and the path of a child cannot be set
  }
  if (where && FileManager::fileExistsAtPath(*where) && !FileManager::isReadableFileAtPath(*where)) {
    return false;
  }
  return isBackup() || (isFolder() && !isNotActive());
}

}  // namespace keldane
