#include "hosts/core/status/link/DaemonLink.h"

#include <optional>

#include "platform/bundle/Bundle.h"
#include "platform/objects/Absent.h"
#include "platform/plugin/PlugIn.h"

namespace keldane {

bool DaemonLink::connect(const std::string& socketPath) {
  socket_ = KeldaneSocket::create();
  proxy_ = KeldaneProxy::create();
  proxy_->setSocket(socket_);
  proxy_->setProtocol(&KeldaneDaemonProtocol);
  if (!socketPath.empty() && socket_->connectToPath(socketPath)) {
    return true;
  }
  close();
  return false;
}

void DaemonLink::close() {
  sendTo(proxy_, &KeldaneProxy::close);
  sendTo(socket_, &KeldaneSocket::close);
  proxy_.reset();
  socket_.reset();
}

RawValue DaemonLink::call(std::string_view selector, Arguments arguments) {
  return proxy_ ? proxy_->call(selector, std::move(arguments)) : RawValue();
}

std::string installedDaemonPath() {
  const auto path = PlugIn::findBundleForType(contextualMenuTypeID());
  const std::shared_ptr<Bundle> bundle = path ? Bundle::bundleWithPath(*path) : nullptr;
  return bundle ? std::string(bundle->objectForInfoDictionaryKey("DaemonPath").string()) : std::string();
}

}  // namespace keldane
