#include "Common/FileNode.h"

#include <algorithm>

#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/objects/Exceptions.h"

namespace keldane {

// A deep tree is taken apart level by level, so that its depth cannot exhaust a host's stack.
KeldaneFileNode::~KeldaneFileNode() {
  if (!children_) {
    return;
  }
  std::vector<Pointer> nodes = std::move(*children_);
  while (!nodes.empty()) {
    const Pointer node = std::move(nodes.back());
    nodes.pop_back();
    if (node.use_count() == 1 && node->children_) {
      std::move(node->children_->begin(), node->children_->end(), std::back_inserter(nodes));
      node->children_.reset();
    }
  }
}

void KeldaneFileNode::cleanup() {
  fileName_ = displayName_ = backupDate_ = version_ = purgeDate_ = state_ = PropertyList();
  image_.reset();
}

std::uint64_t KeldaneFileNode::sizeValue() const {
  std::uint64_t total = 0;
  std::vector<const KeldaneFileNode*> nodes = {this};
  while (!nodes.empty()) {
    const KeldaneFileNode* node = nodes.back();
    nodes.pop_back();
    total += node->size_;
    if (node->children_) {
      std::transform(node->children_->begin(), node->children_->end(), std::back_inserter(nodes),
                     [](const Pointer& child) { return child.get(); });
    }
  }
  return total;
}

std::optional<std::string> KeldaneFileNode::path() {
  // From the nearest ancestor with a stored path downwards, each on the way keeping its own.
  std::vector<Pointer> way;
  for (Pointer node = shared_from_this(); node && (!node->path_ || node->path_->empty());
       node = node->parent()) {
    way.push_back(node);
  }
  for (; !way.empty(); way.pop_back()) {
    KeldaneFileNode& node = *way.back();
    const Pointer parent = node.parent();
    node.path_ = parent && parent->path_
                     ? std::optional(appendPathComponent(*parent->path_, node.fileName_.string()))
                     : std::nullopt;
  }
  return path_;
}

void KeldaneFileNode::setPath(const std::string& path) {
  if (!parent_.expired()) {
    throw AssertionFailure("-[KeldaneFileNode setPath:]", "Common/FileNode", 1073,
                           "You cannot set the path string of a node in a real hierarchy");
  }
  path_ = path;
}

void KeldaneFileNode::addChild(const Pointer& child) {
  if (!child) {
    return;
  }
  if (!children_) {
    children_.emplace();
  }
  children_->push_back(child);
  child->setParent(shared_from_this());
}

std::uint32_t KeldaneFileNode::count() {
  const std::vector<Pointer>* list = children();
  return list == nullptr ? 0 : static_cast<std::uint32_t>(list->size());
}

KeldaneFileNode::Pointer KeldaneFileNode::root() {
  Pointer node = shared_from_this();
  while (const Pointer above = node->parent()) {
    node = above;
  }
  return node;
}

KeldaneFileNode::Pointer KeldaneFileNode::childWithName(std::string_view name) {
  const std::vector<Pointer>* list = children();
  if (list == nullptr) {
    return nullptr;
  }
  const auto found = std::find_if(list->begin(), list->end(),
                                  [&](const Pointer& child) { return child->fileName_.string() == name; });
  return found == list->end() ? nullptr : *found;
}

bool KeldaneFileNode::isBundle() { return childWithName("Contents") != nullptr; }

bool KeldaneFileNode::showInRestoreBrowser() {
  std::optional<std::string> where = path();
  if (where && FileManager::fileExistsAtPath(*where) && !FileManager::isReadableFileAtPath(*where)) {
    return false;
  }
  return isBackup() || (isFolder() && !isNotActive());
}

}  // namespace keldane
