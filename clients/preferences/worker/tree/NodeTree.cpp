#include "clients/preferences/worker/tree/NodeTree.h"

#include <set>
#include <unordered_map>

#include "Common/calls/KeldProxy.h"
#include "clients/core/FolderTree.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

using Node = KeldaneFileNode;

bool isBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder.ends_with('/') ? folder : folder + '/');
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

void sort(Node& folder) {
  folder.sortUsingDescriptors({{"isDirectory", false}, {"displayName", true, localizedCompare}});
}

}  // namespace

void NodeTree::setDaemon(const std::shared_ptr<KeldaneProxy>& daemon) {
  daemon_ = daemon;
  if (root_) {
    root_->setProxy(daemon);
  }
}

void NodeTree::open(const std::string& path) {
  open_.clear();
  topPath_ = pathNamed(path);
  openedWithoutDaemon_ = !daemon_;
  root_ = folderAt("/", daemon_);
  root_->addPath(topPath_);
}

KeldaneFileNode::Pointer NodeTree::nodeAt(const std::string& path) {
  return root_ ? root_->nodeAtPath(path) : nullptr;
}

NodeRow NodeTree::rowOf(const Node::Pointer& node) const {
  const Node::Pointer parent = node->parent();
  return nodeRow(*node, parent ? canBeEntered(*parent, *node) : node->isDirectory(), kind_);
}

NodeRow NodeTree::rowOf(Node& folder, Node& child) const {
  return nodeRow(child, canBeEntered(folder, child), kind_);
}

// A folder that does not belong into the backup itself may lead to one that does.
bool NodeTree::isShown(Node& node) const {
  return isPast() || kind_ == TreeKind::rules || node.showInRestoreBrowser() || node.backupDate() ||
         (node.isDirectory() && (node.simpleFlags() & simple_flags::kGrayed) != 0);
}

// The node has no children when nobody answers.
Node::Pointer NodeTree::contentOf(const std::string& folder) const {
  const KeldaneFileNodeProxy::Pointer source = folderAt(folder, isPast() ? nullptr : daemon_);
  const PropertyList nodes = isPast() ? past_(folder) : PropertyList();
  for (std::size_t i = 0; i < nodes.count(); ++i) {
    const Node::Pointer child = Node::create();
    child->initWithDictionary(nodes[i]);
    source->addChild(child);
  }
  return source;
}

std::optional<NodeRow> NodeTree::top() {
  if (root_ && daemon_) {
    root_->refreshPath(topPath_);
  }
  const Node::Pointer node = nodeAt(topPath_);
  return node ? std::optional(rowOf(node)) : std::nullopt;
}

/// Updates the children of a node from the daemon's list. Records what changed and what has gone in `change`,
/// and returns the new children.
std::set<const Node*> NodeTree::takeChildren(Node& node, const Node::ChildList& told, FolderChange& change) {
  std::unordered_map<std::string, Node*> known;
  if (const Node::ChildList* children = node.children()) {
    for (Node& child : *children) {
      known.emplace(child.fileName().string(), &child);
    }
  }
  std::set<const Node*> met, fresh;
  for (Node& each : told) {
    if (!isShown(each)) {
      continue;
    }
    const auto found = known.find(std::string(each.fileName().string()));
    if (found == known.end()) {
      const Node::Pointer child = each.pointer();
      node.addChild(child);
      if (node.selected() > 0) {
        child->setSelected(1);
      }
      fresh.insert(child.get());
    } else if (met.insert(found->second).second) {
      Node& child = *found->second;
      const NodeRow before = rowOf(node, child);
      child.initWithDictionary(each.dictionary());
      NodeRow after = rowOf(node, child);
      if (before != after) {
        change.changed.push_back(std::move(after));
      }
    }
  }
  std::vector<Node::Pointer> gone;
  for (const auto& [name, child] : known) {
    if (!met.contains(child)) {
      gone.push_back(child->pointer());
      change.removed.push_back(child->path().value_or(""));
    }
  }
  for (const Node::Pointer& child : gone) {
    node.removeChild(child);
  }
  return fresh;
}

FolderChange NodeTree::refresh(const std::string& folder) {
  FolderChange change{folder, {}, {}, {}};
  const Node::Pointer node = nodeAt(folder);
  if (!node || !daemon_) {
    return change;
  }
  bool& wasTold = open_[folder];
  const Node::Pointer source = contentOf(folder);
  const Node::ChildList* told = source->children();
  if (told == nullptr) {
    return change;  // the folder has gone, which its parent will report, or the daemon has
  }
  const std::set<const Node*> fresh = takeChildren(*node, *told, change);
  if (!wasTold) {
    change.changed.clear();  // every child is reported as added
  }

  const Node::ChildList* children = node->children();
  if (children != nullptr && (!wasTold || !fresh.empty())) {
    sort(*node);
    std::string next;
    for (std::size_t i = children->size(); i > 0; --i) {
      Node& child = (*children)[i - 1];
      NodeRow row = rowOf(*node, child);
      std::string path = row.path;
      if (!wasTold || fresh.contains(&child)) {
        change.added.push_back({std::move(row), next});
      }
      next = std::move(path);
    }
  }
  wasTold = true;
  return change;
}

void NodeTree::close(const std::string& folder) {
  std::erase_if(open_,
                [&](const auto& entry) { return entry.first == folder || isBelow(entry.first, folder); });
  const Node::Pointer node = nodeAt(folder);
  if (node && node != root_) {  // the root must keep the way to the top
    node->flush();
  }
}

std::vector<std::string> NodeTree::openFolders() const {
  std::vector<std::string> folders;
  for (const auto& [folder, wasTold] : open_) {
    folders.push_back(folder);
  }
  return folders;
}

std::vector<NodeRow> NodeTree::reread(const std::string& path) {
  std::vector<NodeRow> rows;
  if (!root_ || !daemon_) {
    return rows;
  }
  for (std::string each = path;; each = folderOf(each)) {
    root_->refreshPath(each);
    if (const Node::Pointer node = nodeAt(each)) {
      rows.push_back(rowOf(node));
    }
    if (each == topPath_ || !isBelow(each, topPath_)) {
      return rows;
    }
  }
}

std::vector<NodeRow> NodeTree::select(const std::string& path, bool selected) {
  std::vector<NodeRow> rows;
  const Node::Pointer node = nodeAt(path);
  if (!node) {
    return rows;
  }
  node->setSelected(selected ? 1 : 0);
  rows.push_back(rowOf(node));
  for (const auto& [folder, wasTold] : open_) {
    const Node::Pointer each = folder == path || isBelow(folder, path) ? nodeAt(folder) : nullptr;
    if (const Node::ChildList* children = each ? each->children() : nullptr) {
      for (Node& child : *children) {
        rows.push_back(rowOf(*each, child));
      }
    }
  }
  for (std::string above = path; above != topPath_ && isBelow(above, topPath_);) {
    above = folderOf(above);
    if (const Node::Pointer each = nodeAt(above)) {
      rows.push_back(rowOf(each));
    }
  }
  return rows;
}

std::vector<std::string> NodeTree::selectedPaths() {
  std::vector<std::string> paths;
  const Node::Pointer top = nodeAt(topPath_);
  if (!top) {
    return paths;
  }
  if (top->selected() > 0) {
    return {topPath_};
  }
  for (const Node::Pointer& each : top->selectedChildren(false)) {
    paths.push_back(each->path().value_or(""));
  }
  return paths;
}

}  // namespace keldane
