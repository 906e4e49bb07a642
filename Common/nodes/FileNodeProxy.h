// A file node that fetches its children from the backup daemon.
#pragma once

#include "Common/nodes/FileNode.h"

namespace keldane {

/// The root of a tree that is loaded on demand. It asks the daemon for its children when they are first
/// needed, and adds or refreshes single paths. The nodes below it are plain nodes, with what the daemon's
/// answers held and what `addPath` added. Without a daemon it behaves as a plain node.
///
/// The proxy is not owned: once it is gone, there is no daemon. Calls wait for the daemon on the caller's
/// thread, without a time limit. Ownership and threads are otherwise those of every node.
class KeldaneFileNodeProxy final : public KeldaneFileNode {
 public:
  using Pointer = std::shared_ptr<KeldaneFileNodeProxy>;

  static Pointer create() { return held(make<KeldaneFileNodeProxy>()); }
  using KeldaneFileNode::KeldaneFileNode;

  std::shared_ptr<KeldaneProxy> proxy() const { return proxy_.lock(); }
  void setProxy(std::weak_ptr<KeldaneProxy> proxy) { proxy_ = std::move(proxy); }

  /// Asks the daemon the first time, and again only after `flush`. Its answer replaces the children that were
  /// added before; without an answer they stay.
  const ChildList* children() override;
  void flush() override;
  /// The node for a path. Missing nodes on the way from the root are made and filled from the daemon's
  /// answers. Until then the local file system says whether the last one is a folder.
  KeldaneFileNode::Pointer addPath(std::string_view path);
  /// Reads one path anew from the daemon: updates or adds its node, or removes it when the daemon does not
  /// know the path. The path begins at the root; the daemon is asked for it below the receiver's file name.
  void refreshPath(std::string_view path);

 private:
  static Pointer held(const std::shared_ptr<KeldaneFileNodeProxy>& node);
  const char* className() const override { return "KeldaneFileNodeProxy"; }
  Link newOfSameClass() const override { return make<KeldaneFileNodeProxy>(); }
  void attach(const Link& child) override;

  bool childrenLoaded_ = false;
  std::weak_ptr<KeldaneProxy> proxy_;
};

}  // namespace keldane
