// The three-state selection over a tree of file nodes.
#include "Common/nodes/FileNode.h"
#include "platform/objects/Absent.h"

namespace keldane {

namespace {

using Node = KeldaneFileNode;

/// Visits all nodes below a node in list order, parents first. `visit` returns whether to go on below the
/// given node.
template <class Visit>
void visitBelow(Node& top, const Visit& visit) {
  struct Place {
    const Node::ChildList* list;
    std::size_t index;
  };
  std::vector<Place> places;
  if (const Node::ChildList* list = top.children()) {
    places.push_back({list, 0});
  }
  while (!places.empty()) {
    Place& place = places.back();
    if (place.index == place.list->size()) {
      places.pop_back();
      continue;
    }
    Node& node = (*place.list)[place.index++];
    if (!visit(node)) {
      continue;
    }
    if (const Node::ChildList* below = node.children()) {
      places.push_back({below, 0});
    }
  }
}

}  // namespace

void KeldaneFileNode::setSelected(std::int32_t selected) {
  if (selected != 0) {
    select();
  } else {
    deselect();
  }
  sendTo(parentLink(), &KeldaneFileNode::checkSelections);
}

// A file that was never backed up refuses the selection, but its folder is still marked as selected. The
// folder's selection is derived from its children only after a later change below it. This is kept on
// purpose.
void KeldaneFileNode::select() {
  const auto selectOne = [](KeldaneFileNode& node) {
    const bool can = node.backupDate_ || node.isDirectory_;
    node.selected_ = can ? 1 : node.selected_;
    return can;
  };
  if (selectOne(*this)) {
    visitBelow(*this, selectOne);
  }
}

void KeldaneFileNode::deselect() {
  const auto deselectOne = [](KeldaneFileNode& node) {
    node.selected_ = 0;
    return true;
  };
  deselectOne(*this);
  visitBelow(*this, deselectOne);
}

void KeldaneFileNode::checkSelections() {
  const Pointer held = pointer();
  for (Link node = shared_from_this(); node; node = node->parentLink()) {
    std::size_t full = 0, partial = 0;
    if (const ChildList* list = node->children()) {
      for (const KeldaneFileNode& child : *list) {
        full += child.selected_ == 1 ? 1U : 0U;
        partial += child.selected_ == -1 ? 1U : 0U;
      }
    }
    // The counts of a node without children are equal too, so it becomes fully selected. This is kept on
    // purpose.
    if (full == (node->children_ ? node->children_->size() : 0)) {
      node->selected_ = 1;
    } else {
      node->selected_ = full + partial > 0 ? -1 : 0;
    }
  }
}

std::vector<KeldaneFileNode::Pointer> KeldaneFileNode::deepestFullSelections() {
  std::vector<Pointer> found;
  visitBelow(*this, [&](KeldaneFileNode& node) {
    if (node.selected_ == 0) {
      return false;
    }
    bool folders = false, files = false;
    if (node.selected_ == 1 && node.isDirectory_) {
      node.hasChildDirectories(folders, files);
    }
    const bool goOn = node.selected_ != 1 || folders;
    if (!goOn) {
      found.push_back(node.pointer());
    }
    return goOn;
  });
  return found;
}

std::vector<KeldaneFileNode::Pointer> KeldaneFileNode::selectedChildren(bool expand) {
  std::vector<Pointer> found;
  visitBelow(*this, [&](KeldaneFileNode& node) {
    if (node.selected_ == 0) {
      return false;
    }
    const bool goOn = node.selected_ != 1 || (expand && node.isDirectory_);
    if (!goOn) {
      found.push_back(node.pointer());
    }
    return goOn;
  });
  return found;
}

}  // namespace keldane
