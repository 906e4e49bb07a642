// Small trees of file nodes.
#pragma once

#include <string>
#include <vector>

#include "Common/nodes/FileNode.h"

namespace keldane::testing {

using Node = KeldaneFileNode;

inline Node::Pointer named(const char* name) { return Node::create(name, false); }

inline Node::Pointer folder(const char* name, const std::vector<Node::Pointer>& children = {}) {
  const Node::Pointer node = Node::create(name, true);
  for (const Node::Pointer& child : children) {
    node->addChild(child);
  }
  return node;
}

inline Node::Pointer rootOf(const std::vector<Node::Pointer>& children) {
  const Node::Pointer root = folder("/", children);
  root->setPath("/");
  return root;
}

inline std::vector<std::string> namesOf(const Node::ChildList* list) {
  std::vector<std::string> names;
  if (list != nullptr) {
    for (const Node& child : *list) {
      names.emplace_back(child.fileName().string());
    }
  }
  return names;
}

using Names = std::vector<std::string>;

}  // namespace keldane::testing
