#include "clients/preferences/worker/RulesTree.h"

#include <set>
#include <unordered_map>

#include "Common/KeldProxy.h"
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

void RulesTree::setDaemon(const std::shared_ptr<KeldaneProxy>& daemon) {
  daemon_ = daemon;
  if (root_) {
    root_->setProxy(daemon);
  }
}

void RulesTree::open(const std::string& path) {
  open_.clear();
  topPath_ = pathNamed(path);
  openedWithoutDaemon_ = !daemon_;
  root_ = folderAt("/", daemon_);
  root_->addPath(topPath_);
}

KeldaneFileNode::Pointer RulesTree::nodeAt(const std::string& path) {
  return root_ ? root_->nodeAtPath(path) : nullptr;
}

RuleRow RulesTree::rowOf(const Node::Pointer& node) const {
  const Node::Pointer parent = node->parent();
  return ruleRow(*node, parent ? canBeEntered(*parent, *node) : node->isDirectory());
}

std::optional<RuleRow> RulesTree::top() {
  if (root_ && daemon_) {
    root_->refreshPath(topPath_);
  }
  const Node::Pointer node = nodeAt(topPath_);
  return node ? std::optional(rowOf(node)) : std::nullopt;
}

FolderChange RulesTree::refresh(const std::string& folder) {
  FolderChange change{folder, {}, {}, {}};
  const Node::Pointer node = nodeAt(folder);
  if (!node || !daemon_) {
    return change;
  }
  bool& wasTold = open_[folder];
  const KeldaneFileNodeProxy::Pointer source = folderAt(folder, daemon_);
  const Node::ChildList* told = source->children();
  if (told == nullptr) {
    return change;  // the folder has gone, which its own folder will say, or the daemon has
  }

  std::unordered_map<std::string, Node*> known;
  std::vector<Node::Pointer> gone;
  if (const Node::ChildList* children = node->children()) {
    for (Node& child : *children) {
      known.emplace(child.fileName().string(), &child);
    }
  }
  std::set<const Node*> met, fresh;
  for (Node& each : *told) {
    const auto found = known.find(std::string(each.fileName().string()));
    if (found == known.end()) {
      const Node::Pointer child = each.pointer();
      node->addChild(child);
      fresh.insert(child.get());
    } else if (met.insert(found->second).second) {
      Node& child = *found->second;
      const RuleRow before = ruleRow(child, canBeEntered(*node, child));
      child.initWithDictionary(each.dictionary());
      RuleRow after = ruleRow(child, canBeEntered(*node, child));
      if (wasTold && before != after) {
        change.changed.push_back(std::move(after));
      }
    }
  }
  for (const auto& [name, child] : known) {
    if (!met.contains(child)) {
      gone.push_back(child->pointer());
      change.removed.push_back(child->path().value_or(""));
    }
  }
  for (const Node::Pointer& child : gone) {
    node->removeChild(child);
  }

  const Node::ChildList* children = node->children();
  if (children != nullptr && (!wasTold || !fresh.empty())) {
    sort(*node);
    std::string next;
    for (std::size_t i = children->size(); i > 0; --i) {
      Node& child = (*children)[i - 1];
      RuleRow row = ruleRow(child, canBeEntered(*node, child));
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

void RulesTree::close(const std::string& folder) {
  std::erase_if(open_,
                [&](const auto& entry) { return entry.first == folder || isBelow(entry.first, folder); });
  const Node::Pointer node = nodeAt(folder);
  if (node && node != root_) {  // the root would forget the way to the top
    node->flush();
  }
}

std::vector<std::string> RulesTree::openFolders() const {
  std::vector<std::string> folders;
  for (const auto& [folder, wasTold] : open_) {
    folders.push_back(folder);
  }
  return folders;
}

std::vector<RuleRow> RulesTree::reread(const std::string& path) {
  std::vector<RuleRow> rows;
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

}  // namespace keldane
