// The daemon's folders, a level at a time.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Common/nodes/FileNodeProxy.h"

namespace keldane {

/// The absolute path that a person means, without "." and ".." and slashes at its end.
std::string pathNamed(const std::string& text);

/// A folder whose children come from the daemon when they are first looked at.
KeldaneFileNodeProxy::Pointer folderAt(const std::string& path, const std::shared_ptr<KeldaneProxy>& daemon);

/// Puts what the daemon says is in a folder into its node, whose own children, if it has any, stand instead.
/// What cannot be asked stays without.
void loadChildren(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon);

/// Adds what this program finds in a folder under names that are not UTF-8: the protocol cannot name it, so
/// the daemon does not list it. Such a node has its name's bytes, stands as its folder does, cannot be
/// entered, and has a backup date, of no meaning, when all that is selected in its folder is stored. For a
/// folder whose children are loaded; done twice it changes nothing.
void addNamesThatAreNoText(const KeldaneFileNode::Pointer& folder);
bool hasNameThatIsNoText(const KeldaneFileNode& node);

/// Whether a child is a folder whose path lies below its folder's and is one that a system can hold. So no
/// daemon's answer leads round in a circle or down without end. A path that is not UTF-8 cannot be asked
/// about.
bool canBeEntered(KeldaneFileNode& folder, KeldaneFileNode& child);
/// Those among the children that can be entered, in their order.
std::vector<KeldaneFileNode::Pointer> foldersIn(const KeldaneFileNode::Pointer& folder);

/// Loads the children of a folder and of all folders below, names that are no text included; `asking` is told
/// before each question. Not recursive: the depth of a tree does not matter.
void loadAll(const KeldaneFileNode::Pointer& folder, const std::shared_ptr<KeldaneProxy>& daemon,
             const std::function<void()>& asking);

/// The node of a path that lies below a root, with the children of every folder on the way loaded, names that
/// are no text included; absent
/// when one of them is not among its folder's.
KeldaneFileNode::Pointer loadPath(const KeldaneFileNode::Pointer& root, const std::string& path,
                                  const std::shared_ptr<KeldaneProxy>& daemon);

}  // namespace keldane
