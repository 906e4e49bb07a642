#include "Common/nodes/FileNodeProxy.h"

#include "Common/calls/KeldProxy.h"
#include "log/KeldaneLog.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/objects/Absent.h"

namespace keldane {

KeldaneFileNodeProxy::Pointer KeldaneFileNodeProxy::held(const std::shared_ptr<KeldaneFileNodeProxy>& node) {
  return {node->pointer(), node.get()};
}

const KeldaneFileNode::ChildList* KeldaneFileNodeProxy::children() {
  const std::shared_ptr<KeldaneProxy> daemon = proxy();
  if (daemon && !childrenLoaded_) {
    const std::optional<std::string> where = path();
    const PropertyList answer =
        daemon->childrenDictionariesForPath(where ? PropertyList(*where) : PropertyList());
    childrenLoaded_ = true;  // even for an absent answer, so that the daemon is not asked again
    if (answer.isArray()) {
      renewChildren();
      for (const KeldaneFileNode::Pointer& child : fileNodesForDictionaries(answer)) {
        addChild(child);
      }
    }
  }
  return KeldaneFileNode::children();
}

void KeldaneFileNodeProxy::attach(const Link& child) {
  KeldaneFileNode::attach(child);
  if (auto* other = dynamic_cast<KeldaneFileNodeProxy*>(child.get())) {
    other->setProxy(proxy_);
  }
}

void KeldaneFileNodeProxy::flush() {
  KeldaneFileNode::flush();
  childrenLoaded_ = false;
}

KeldaneFileNode::Pointer KeldaneFileNodeProxy::addPath(std::string_view path) {
  const std::vector<std::string> components = pathComponents(path);
  bool isFolder = false;
  FileManager::fileExistsAtPath(std::string(path), &isFolder);
  KeldaneFileNode::Pointer node = root();
  for (std::size_t i = 1; i < components.size(); ++i) {
    KeldaneFileNode::Pointer child = node->childWithName(components[i]);
    if (!child) {
      child = KeldaneFileNode::create(components[i], i + 1 < components.size() || isFolder);
      node->addChild(child);
      const PropertyList answer = sendTo(proxy(), [&](KeldaneProxy& daemon) {
        const std::optional<std::string> where = child->path();
        return daemon.dictionaryForPath(where ? PropertyList(*where) : PropertyList());
      });
      if (answer) {
        child->initWithDictionary(answer);
      }
    }
    node = std::move(child);
  }
  return node;
}

void KeldaneFileNodeProxy::refreshPath(std::string_view path) {
  // The file name, not the path, is put in front, because a tree is expected to be rooted at "/".
  const std::string full =
      fileName().string() == "/" ? std::string(path) : appendPathComponent(fileName().string(), path);
  const PropertyList answer =
      sendTo(proxy(), [&](KeldaneProxy& daemon) { return daemon.dictionaryForPath(PropertyList(full)); });
  KeldaneCLog("refreshPath: %@\n%@", full, answer);
  if (!answer) {
    removeNodeAtPath(path);
  } else if (const KeldaneFileNode::Pointer node = nodeAtPath(path)) {
    node->initWithDictionary(answer);
  } else {
    addPath(path);
  }
}

}  // namespace keldane
