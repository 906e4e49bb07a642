// The daemon's folders, a level at a time.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Common/nodes/FileNodeProxy.h"

namespace keldane {

/// The absolute form of a path that a person typed, without "." and ".." and without slashes at its end.
std::string pathNamed(const std::string& text);

/// A folder whose children the daemon reports when they are first looked at.
KeldaneFileNodeProxy::Pointer folderAt(const std::string& path, const std::shared_ptr<KeldaneProxy>& daemon);

/// Asks the daemon for a folder's children and adds them to its node. A node that has children already keeps
/// them. When nothing can be asked, the node stays without children.
void loadChildren(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon);

/// Adds the entries of a folder whose names are not UTF-8. The protocol cannot carry such names, so the
/// daemon does not list them. Such a node has its name's bytes and its folder's state, and cannot be entered.
/// It has a backup date, of no meaning, when everything selected in its folder is stored. The folder's
/// children must be loaded; a second call changes nothing.
void addNamesThatAreNoText(const KeldaneFileNode::Pointer& folder);
bool hasNameThatIsNoText(const KeldaneFileNode& node);

/// Whether a child is a folder that can be asked about: its path lies below its folder's path, is UTF-8, and
/// is no longer than a system allows. So no answer of a daemon leads round in a circle or down without end.
bool canBeEntered(KeldaneFileNode& folder, KeldaneFileNode& child);
/// The children that can be entered, in their order.
std::vector<KeldaneFileNode::Pointer> foldersIn(const KeldaneFileNode::Pointer& folder);

/// Loads the children of a folder and of all folders below, including names that are no text. `asking` is
/// called before each question. Not recursive, so any depth of the tree is safe.
void loadAll(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon,
             const std::function<void()>& asking);

/// The node of a path below a root. The children of every folder on the way are loaded, including names that
/// are no text. Absent when a part of the path is not among its folder's children.
KeldaneFileNode::Pointer loadPath(const KeldaneFileNode::Pointer& root, const std::string& path,
                                  const std::shared_ptr<KeldaneProxy>& daemon);

}  // namespace keldane
