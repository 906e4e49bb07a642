#include "clients/core/FolderTree.h"

#include <climits>

#include "cli/AbsolutePath.h"
#include "platform/files/Path.h"

namespace keldane {

std::string pathNamed(const std::string& text) {
  std::string path = absolutePath(text);
  while (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

KeldaneFileNodeProxy::Pointer folderAt(const std::string& path, const std::shared_ptr<KeldaneProxy>& daemon) {
  KeldaneFileNodeProxy::Pointer folder = KeldaneFileNodeProxy::create();
  folder->setFileName(lastPathComponent(path));
  folder->setIsDirectory(true);
  folder->setPath(path);
  folder->setProxy(daemon);
  return folder;
}

void loadChildren(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon) {
  const std::optional<std::string> path = folder->path();
  if (!path || !folder->isDirectory() || folder->children() != nullptr) {
    return;
  }
  const KeldaneFileNodeProxy::Pointer source = folderAt(*path, daemon);
  if (const KeldaneFileNode::ChildList* children = source->children()) {
    for (KeldaneFileNode& child : *children) {
      folder->addChild(child.pointer());
    }
  }
}

bool canBeEntered(KeldaneFileNode& folder, KeldaneFileNode& child) {
  const std::string path = folder.path().value_or("");
  const std::string above = path == "/" ? path : path + '/';
  const std::string below = child.path().value_or("");
  return child.isDirectory() && below.size() > above.size() && below.size() < PATH_MAX &&
         below.starts_with(above);
}

std::vector<KeldaneFileNode::Pointer> foldersIn(const KeldaneFileNode::Pointer& folder) {
  std::vector<KeldaneFileNode::Pointer> folders;
  if (const KeldaneFileNode::ChildList* children = folder->children()) {
    for (KeldaneFileNode& child : *children) {
      if (canBeEntered(*folder, child)) {
        folders.push_back(child.pointer());
      }
    }
  }
  return folders;
}

void loadAll(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon,
             const std::function<void()>& asking) {
  std::vector<KeldaneFileNode::Pointer> folders = {folder};
  while (!folders.empty()) {
    const KeldaneFileNode::Pointer current = std::move(folders.back());
    folders.pop_back();
    asking();
    loadChildren(current, daemon);
    std::vector<KeldaneFileNode::Pointer> below = foldersIn(current);
    folders.insert(folders.end(), std::make_move_iterator(below.begin()),
                   std::make_move_iterator(below.end()));
  }
}

KeldaneFileNode::Pointer loadPath(const KeldaneFileNode::Pointer& root, const std::string& path,
                                  const std::shared_ptr<KeldaneProxy>& daemon) {
  const std::vector<std::string> components = pathComponents(path);
  KeldaneFileNode::Pointer node = root;
  for (std::size_t i = pathComponents(*root->path()).size(); i < components.size() && node; ++i) {
    loadChildren(node, daemon);
    node = node->childWithName(components[i]);
  }
  return node;
}

}  // namespace keldane
