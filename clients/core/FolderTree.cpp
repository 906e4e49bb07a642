#include "clients/core/FolderTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>

#include "cli/AbsolutePath.h"
#include "platform/files/Path.h"
#include "platform/text/Unicode.h"

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

bool hasNameThatIsNoText(const KeldaneFileNode& node) {
  return node.fileName().isString() && !isValidUtf8(node.fileName().string());
}

void addNamesThatAreNoText(const KeldaneFileNode::Pointer& folder) {
  using namespace backup_flags;
  if (const KeldaneFileNode::ChildList* children = folder->children();
      children != nullptr && std::any_of(children->begin(), children->end(), hasNameThatIsNoText)) {
    return;
  }
  const std::string path = folder->path().value_or("");
  const std::unique_ptr<DIR, int (*)(DIR*)> open(path.empty() ? nullptr : opendir(path.c_str()), closedir);
  while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
    struct stat status {};
    if (isValidUtf8(entry->d_name) ||
        fstatat(dirfd(open.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    const bool isStored = static_cast<BackupColor>(folder->backupColor()) == BackupColor::green;
    const KeldaneFileNode::Pointer child = KeldaneFileNode::create(entry->d_name, S_ISDIR(status.st_mode));
    child->setState((folder->backupFlags() & kSystem) != 0   ? "Excluded by policy"
                    : (folder->backupFlags() & kBackup) != 0 ? "Goes with its folder"
                                                             : "Not selected for backup");
    child->setBackupFlags((folder->backupFlags() & (kBackup | kSystem)) | (isStored ? kBackedUp : 0U));
    child->setBackupColor(folder->backupColor());
    child->setSizeValue(S_ISDIR(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size));
    child->setUid(status.st_uid);
    child->setGid(status.st_gid);
    if (isStored) {
      child->setBackupDate(Date::fromUnixTime(0));
    }
    folder->addChild(child);
  }
}

bool canBeEntered(KeldaneFileNode& folder, KeldaneFileNode& child) {
  const std::string path = folder.path().value_or("");
  const std::string above = path == "/" ? path : path + '/';
  const std::string below = child.path().value_or("");
  return child.isDirectory() && below.size() > above.size() && below.size() < PATH_MAX &&
         below.starts_with(above) && isValidUtf8(below);
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

namespace {

void loadAnyName(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon) {
  loadChildren(folder, daemon);
  addNamesThatAreNoText(folder);
}

}  // namespace

void loadAll(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon,
             const std::function<void()>& asking) {
  std::vector<KeldaneFileNode::Pointer> folders = {folder};
  while (!folders.empty()) {
    const KeldaneFileNode::Pointer current = std::move(folders.back());
    folders.pop_back();
    asking();
    loadAnyName(current, daemon);
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
    loadAnyName(node, daemon);
    node = node->childWithName(components[i]);
  }
  return node;
}

}  // namespace keldane
