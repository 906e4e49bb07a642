// A file node that fetches its children from the backup daemon.
#pragma once

#include "Common/nodes/FileNode.h"

namespace keldane {

/// The root of a tree that is loaded on demand. It asks the daemon for its children when they are first
/// needed, and adds or refreshes single paths. The nodes below it are plain nodes. They come from the
/// daemon's answers and from `addPath`. Without a daemon it behaves as a plain node.
///
/// The proxy is not owned. Once it is gone, the node behaves as without a daemon. Calls wait for the daemon
/// on the caller's thread, without a time limit. Otherwise the rules of KeldaneFileNode for ownership and
/// threads apply.
class KeldaneFileNodeProxy final : public KeldaneFileNode {
 public:
  using Pointer = std::shared_ptr<KeldaneFileNodeProxy>;

  static Pointer create() { return held(make<KeldaneFileNodeProxy>()); }
  using KeldaneFileNode::KeldaneFileNode;

  std::shared_ptr<KeldaneProxy> proxy() const { return proxy_.lock(); }
  void setProxy(std::weak_ptr<KeldaneProxy> proxy) { proxy_ = std::move(proxy); }

  /// Asks the daemon at the first call, and again only after `flush`. The daemon's answer replaces the
  /// children that were added before. Without an answer they stay.
  const ChildList* children() override;
  void flush() override;
  /// The node for a path. Missing nodes on the way from the root are made and filled from the daemon's
  /// answers. Until then the local file system tells whether the last node is a folder.
  KeldaneFileNode::Pointer addPath(std::string_view path);
  /// Reads one path anew from the daemon: updates or adds its node, or removes it when the daemon does not
  /// know the path. The path begins at the root. In the question to the daemon, the receiver's file name is
  /// put in front of it.
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
