// A daemon in a few lines: every file that a menu asks about is "Known to the example", and may be backed up.
//   g++ daemon.cpp $(pkg-config --cflags --libs keldane-daemon) -o daemon && ./daemon /tmp/mine/example.sock
// A bundle whose "DaemonPath" names that socket shows it. daemon.md tells what other calls mean.
#include <unistd.h>

#include <iostream>
#include <map>
#include <mutex>

#include "Common/calls/DaemonProtocol.h"
#include "Common/calls/KeldProxy.h"
#include "Common/transport/KeldSocket.h"

using namespace keldane;

namespace {

/// Answers one call. The thread is that of the client which asks.
class Service final : public InvocationTarget {
 public:
  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
    return KeldaneDaemonProtocol.find(selector);
  }
  void invoke(Invocation& invocation) override {
    const char type[] = {invocation.signature.returnCode, '\0'};
    if (invocation.signature.selector == "dictionaryForPath:withDirSizes:") {
      const std::string path(invocation.arguments.front().encoded().string());
      invocation.result =
          RawValue::decoded(PropertyList::dictionary({{"fileName", path.substr(path.rfind('/') + 1)},
                                                      {"state", "Known to the example"},
                                                      {"simpleFlags", 2}}),
                            type);
    } else if (invocation.signature.returnCode != 'v') {
      invocation.result = RawValue::decoded({}, type);
    }
  }
};

/// Makes a proxy for each client, and keeps both until the link ends.
class Clients final : public KeldSocketDelegate, public std::enable_shared_from_this<Clients> {
 public:
  void socketCreated(const std::shared_ptr<KeldaneSocket>& client) override {
    const std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
    proxy->setProtocol(&KeldaneDaemonProtocol);
    proxy->setDelegate(service_);
    {
      const std::lock_guard guard(mutex_);
      proxies_[client] = proxy;
    }
    client->setSocketDelegate(shared_from_this());
    proxy->setSocket(client);  // from here on the client is heard
  }
  void socketFailed(const std::shared_ptr<KeldaneSocket>& client) override {
    std::shared_ptr<KeldaneProxy> gone;
    {
      const std::lock_guard guard(mutex_);
      gone = std::move(proxies_[client]);
      proxies_.erase(client);
    }
    if (gone) {
      gone->close();
      client->close();
    }
  }

 private:
  const std::shared_ptr<Service> service_ = std::make_shared<Service>();
  std::mutex mutex_;
  std::map<std::shared_ptr<KeldaneSocket>, std::shared_ptr<KeldaneProxy>> proxies_;  // guarded by mutex_
};

}  // namespace

int main(int argc, char** argv) {
  const auto listener = KeldaneSocket::create();
  listener->setSocketDelegate(std::make_shared<Clients>());
  if (argc != 2 || !listener->listenAtPath(argv[1])) {
    std::cerr << "usage: daemon SOCKET\n";
    return 2;
  }
  pause();
  return 0;
}
