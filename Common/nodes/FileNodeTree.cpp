// The tree of file nodes: ownership, adding and removing children, and finding nodes by path.
#include <algorithm>

#include "Common/nodes/FileNode.h"
#include "platform/files/Path.h"
#include "platform/objects/Absent.h"
#include "platform/objects/Exceptions.h"

namespace keldane {

/// The object that a Pointer owns. It holds the node, and the holds of the nodes above. All Pointers to one
/// node share one hold, which the node knows weakly. Holds refer upwards only and child lists downwards only,
/// so neither can close a cycle.
struct KeldaneFileNode::Hold {
  Hold() = default;
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;
  ~Hold() {
    // The ancestors are freed one after the other, without recursion, because a deep tree must not use up the
    // host's stack.
    for (std::shared_ptr<Hold> above = std::move(parent); above.use_count() == 1;) {
      std::shared_ptr<Hold> next = std::move(above->parent);
      above = std::move(next);
    }
  }

  Link node;
  std::shared_ptr<Hold> parent;
  std::shared_ptr<Hold> original;  // for a copy, of the node whose children it has
};

KeldaneFileNode::~KeldaneFileNode() { takeApart(std::move(children_)); }

/// Frees a list, and all lists below it that nobody else holds, one after the other. It uses no stack in
/// proportion to the depth and asks for no memory.
void KeldaneFileNode::takeApart(std::unique_ptr<ChildList> list) {
  while (list) {
    if (list->nodes_.empty()) {
      list = std::move(list->next_);
      continue;
    }
    const Link node = std::move(list->nodes_.back());
    list->nodes_.pop_back();
    if (node.use_count() == 1 && node->children_) {
      std::unique_ptr<ChildList> below = std::move(node->children_);
      below->next_ = std::move(list);
      list = std::move(below);
    }
  }
}

KeldaneFileNode::Pointer KeldaneFileNode::create(PropertyList fileName, bool directory) {
  Pointer node = create();
  node->fileName_ = std::move(fileName);
  node->isDirectory_ = directory;
  return node;
}

KeldaneFileNode::Pointer KeldaneFileNode::pointer() {
  if (const std::shared_ptr<Hold> held = hold_.lock()) {
    return {held, this};
  }
  std::vector<std::shared_ptr<Hold>> unfinished;
  const auto holdOf = [&](const Link& node) {
    std::shared_ptr<Hold> hold = node ? node->hold_.lock() : nullptr;
    if (node && !hold) {
      hold = std::make_shared<Hold>();
      hold->node = node;
      node->hold_ = hold;
      unfinished.push_back(hold);
    }
    return hold;
  };
  const std::shared_ptr<Hold> hold = holdOf(shared_from_this());
  while (!unfinished.empty()) {
    const std::shared_ptr<Hold> next = std::move(unfinished.back());
    unfinished.pop_back();
    next->parent = holdOf(next->node->parentLink());
    next->original = holdOf(next->node->originalOfChildren());
  }
  return {hold, this};
}

KeldaneFileNode::Link KeldaneFileNode::originalOfChildren() const {
  return children_ ? children_->original_.lock() : nullptr;
}

/// Whether a Pointer to the other node keeps this one alive, through its parents or through the nodes whose
/// children were copied.
bool KeldaneFileNode::isAbove(const KeldaneFileNode& other) const {
  if (this == &other) {
    return true;
  }
  if (!wasAbove_) {
    return false;
  }
  std::vector<const KeldaneFileNode*> nodes = {&other};
  while (!nodes.empty()) {
    const KeldaneFileNode* node = nodes.back();
    nodes.pop_back();
    for (const Link& above : {node->parentLink(), node->originalOfChildren()}) {
      if (above.get() == this) {
        return true;
      }
      if (above) {
        nodes.push_back(above.get());
      }
    }
  }
  return false;
}

/// Whether the other's child lists lead to this node.
bool KeldaneFileNode::isBelow(const KeldaneFileNode& other) const {
  if (!other.children_ || weak_from_this().use_count() == (hold_.expired() ? 0 : 1)) {
    return false;  // only its hold owns this node, so no child list contains it
  }
  std::vector<const KeldaneFileNode*> nodes = {&other};
  while (!nodes.empty()) {
    const KeldaneFileNode* node = nodes.back();
    nodes.pop_back();
    if (node == this) {
      return true;
    }
    if (node->children_) {
      for (const Link& child : node->children_->nodes_) {
        nodes.push_back(child.get());
      }
    }
  }
  return false;
}

KeldaneFileNode::Pointer KeldaneFileNode::parent() const {
  const Link parent = parentLink();
  return parent ? parent->pointer() : nullptr;
}

void KeldaneFileNode::setParent(const Pointer& parent) {
  if (parent && isAbove(*parent)) {
    throw InvalidArgument("A node cannot have itself or a node below it as its parent");
  }
  setParentLink(parent ? parent->shared_from_this() : nullptr);
}

void KeldaneFileNode::setParentLink(const Link& parent) {
  parent_ = parent;
  if (parent) {
    parent->wasAbove_ = true;
  }
  if (const std::shared_ptr<Hold> hold = hold_.lock()) {
    const Pointer held = parent ? parent->pointer() : nullptr;
    hold->parent = parent ? parent->hold_.lock() : nullptr;
  }
}

KeldaneFileNode::ChildList& KeldaneFileNode::changeableChildren(const char* operation) {
  if (!children_) {
    renewChildren();
  }
  if (!children_->changeable_) {
    throw InvalidArgument(std::string(operation) + ": the children of a copy cannot be changed");
  }
  return *children_;
}

void KeldaneFileNode::renewChildren() {
  flushChildren();
  children_ = std::make_unique<ChildList>();
}

void KeldaneFileNode::addChild(const Pointer& child) {
  if (!child) {
    return;
  }
  if (child->isAbove(*this) || isBelow(*child)) {
    throw InvalidArgument("A node cannot be a child of itself or of a node below it");
  }
  attach(child->shared_from_this());
}

void KeldaneFileNode::attach(const Link& child) {
  changeableChildren("addChild:").nodes_.push_back(child);
  child->setParentLink(shared_from_this());
}

void KeldaneFileNode::removeChild(const Pointer& child) {
  if (!child || !children_) {
    return;
  }
  std::erase_if(changeableChildren("removeChild:").nodes_,
                [&](const Link& other) { return other.get() == child.get() || other->isEqual(child.get()); });
}

std::uint32_t KeldaneFileNode::count() {
  const ChildList* list = children();
  return list == nullptr ? 0 : static_cast<std::uint32_t>(list->size());
}

KeldaneFileNode::Pointer KeldaneFileNode::root() {
  Link node = shared_from_this();
  while (Link above = node->parentLink()) {
    node = std::move(above);
  }
  return node->pointer();
}

KeldaneFileNode::Pointer KeldaneFileNode::childWithName(std::string_view name) {
  if (const ChildList* list = children()) {
    for (KeldaneFileNode& child : *list) {
      if (child.fileName_.isString() && child.fileName_.string() == name) {
        return child.pointer();
      }
    }
  }
  return nullptr;
}

KeldaneFileNode::Pointer KeldaneFileNode::nodeAtPath(std::string_view path) {
  const std::vector<std::string> components = pathComponents(path);
  Pointer node = root();
  for (std::size_t i = 1; i < components.size() && node; ++i) {
    node = node->childWithName(components[i]);
  }
  return node;
}

void KeldaneFileNode::removeNodeAtPath(std::string_view path) {
  const Pointer node = nodeAtPath(path);
  sendTo(sendTo(node, &KeldaneFileNode::parent), &KeldaneFileNode::removeChild, node);
}

void KeldaneFileNode::hasChildDirectories(bool& directories, bool& andFiles) {
  directories = andFiles = false;
  if (!children_) {
    return;
  }
  for (const KeldaneFileNode& child : *children()) {
    (child.isDirectory_ ? directories : andFiles) = true;
  }
}

void KeldaneFileNode::flush() {
  image_.reset();
  flushChildren();
}

void KeldaneFileNode::flushChildren() {
  if (const std::shared_ptr<Hold> hold = hold_.lock()) {
    hold->original.reset();
  }
  takeApart(std::move(children_));
}

KeldaneFileNode::Pointer KeldaneFileNode::copy() {
  const Link made = newOfSameClass();
  const Pointer copy = made->pointer();
  copy->setParent(parent());
  copy->fileName_ = fileName_;
  copy->displayName_ = displayName_;
  copy->isDirectory_ = isDirectory_;
  copy->selected_ = selected_;
  copy->totalCount_ = totalCount_;
  copy->size_ = size_;
  copy->uid_ = uid_;
  copy->gid_ = gid_;
  copy->inPolicy_ = inPolicy_;
  copy->state_ = state_;
  copy->backupDate_ = backupDate_;
  copy->version_ = version_;
  copy->purgeDate_ = purgeDate_;
  copy->image_ = image_;
  // Flags, colour and path are not copied, on purpose. A copy has no flags and no colour, and derives its
  // path from its parent.
  if (children_) {
    copy->children_ = std::make_unique<ChildList>();
  }
  if (children_ && !children_->empty()) {
    copy->children_->nodes_ = children_->nodes_;
    copy->children_->changeable_ = false;
    const Link original = originalOfChildren();
    KeldaneFileNode& source = original ? *original : *this;
    source.wasAbove_ = true;
    copy->children_->original_ = source.weak_from_this();
    const Pointer held = source.pointer();
    copy->hold_.lock()->original = source.hold_.lock();
  }
  return copy;
}

}  // namespace keldane
