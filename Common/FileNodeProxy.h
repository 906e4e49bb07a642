// A file node that fetches its children from the backup daemon.
#pragma once

#include "Common/FileNode.h"

namespace keldane {

/// The root of a tree that grows as it is looked at: asks the daemon for its children when they are first
/// wanted, and adds or refreshes single paths. The levels below it are plain nodes, which hold what the
/// daemon's answers brought and what `addPath` adds. Without a daemon it behaves as a plain node.
///
/// The proxy is not owned: once it is gone the daemon is absent. Calls wait for the daemon on the thread of
/// the caller, without a time limit; ownership and threads are otherwise those of every node.
class KeldaneFileNodeProxy final : public KeldaneFileNode {
 public:
  using Pointer = std::shared_ptr<KeldaneFileNodeProxy>;

  static Pointer create() { return held(make<KeldaneFileNodeProxy>()); }
  using KeldaneFileNode::KeldaneFileNode;

  std::shared_ptr<KeldaneProxy> proxy() const { return proxy_.lock(); }
  void setProxy(std::weak_ptr<KeldaneProxy> proxy) { proxy_ = std::move(proxy); }

  /// Asks the daemon the first time. What was added before is dropped when it answers and kept when it does
  /// not; it is asked again after `flush` only.
  const ChildList* children() override;
  void flush() override;
  /// The node for a path, made with all that is missing on the way from the root; new nodes are filled from
  /// the daemon's answers. Whether the last one is a folder is taken from the local file system first.
  KeldaneFileNode::Pointer addPath(std::string_view path);
  /// Reads one path anew from the daemon: updates or adds its node, or removes it when the daemon does not
  /// know it. The path counts from the root, for which the receiver's file name stands.
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
