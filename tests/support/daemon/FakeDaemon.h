// A daemon in the test's own process. It uses the real transport, gives prepared answers and records the
// calls.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Common/calls/KeldProxy.h"
#include "Common/transport/KeldSocket.h"
#include "tests/support/Printing.h"
#include "tests/support/Wait.h"

namespace keldane::testing {

/// One call that reached the daemon, with the arguments of the request.
struct DaemonCall {
  std::string selector;
  PropertyList::Array arguments;
  bool operator==(const DaemonCall&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const DaemonCall& call) {
  return out << call.selector << ' ' << PropertyList::array(call.arguments).description();
}

/// Listens for its lifetime. A selector without a prepared answer is answered with an absent value. Answers
/// are made on the receive thread of the asking client; everything else may be called from any thread.
class FakeDaemon {
 public:
  using Answer = std::function<PropertyList(const PropertyList::Array& arguments)>;

  /// The path has at most 103 bytes.
  explicit FakeDaemon(const std::string& path) : path_(path) {
    listener_->setSocketDelegate(service_);
    if (!listener_->listenAtPath(path)) {
      ADD_FAILURE() << "no daemon can listen at " << path;
    }
  }
  ~FakeDaemon() { stop(); }
  FakeDaemon(const FakeDaemon&) = delete;
  FakeDaemon& operator=(const FakeDaemon&) = delete;

  void answer(const std::string& selector, Answer answer) {
    const std::lock_guard guard(service_->mutex);
    service_->answers[selector] = std::move(answer);
  }
  void answer(const std::string& selector, const PropertyList& value) {
    answer(selector, [value](const PropertyList::Array&) { return value; });
  }

  std::vector<DaemonCall> calls() const {
    const std::lock_guard guard(service_->mutex);
    return service_->calls;
  }
  std::size_t count(const std::string& selector) const {
    const std::vector<DaemonCall> all = calls();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [&](const DaemonCall& call) { return call.selector == selector; }));
  }
  void forgetCalls() {
    const std::lock_guard guard(service_->mutex);
    service_->calls.clear();
  }
  /// Whether this many calls have come, within a generous time. A call that returns a value has come when its
  /// caller goes on; for a call without a value, only this can tell.
  bool waitForCalls(std::size_t count) const {
    std::unique_lock guard(service_->mutex);
    return service_->called.wait_for(guard, kGenerous, [&] { return service_->calls.size() >= count; });
  }

  std::size_t clients() const {
    const std::lock_guard guard(service_->mutex);
    return service_->peers.size();
  }
  /// Whether there are this many clients, within a generous time.
  bool waitForClients(std::size_t count) const {
    return eventually([&] { return clients() == count; });
  }

  /// Calls each client back: "stateChanged:", one-way, with one object.
  void tellClients(const PropertyList& state) {
    for (const Peer& peer : peers()) {
      peer.proxy->call("stateChanged:", {RawValue::of<'@'>(state)});
    }
  }

  /// Ends every connection, as a dying daemon does, and goes on listening.
  void hangUp() { service_->hangUp(); }

  void stop() {
    listener_->close();
    hangUp();
    ::unlink(path_.c_str());  // a listener that was never called leaves its file
  }

 private:
  struct Peer {
    std::shared_ptr<KeldaneSocket> socket;
    std::shared_ptr<KeldaneProxy> proxy;
  };

  /// The part that the transport's threads may still use when the daemon itself is gone.
  struct Service final : KeldSocketDelegate, InvocationTarget, std::enable_shared_from_this<Service> {
    void socketCreated(const std::shared_ptr<KeldaneSocket>& child) override {
      static constexpr MethodSignature kClientMethods[] = {{"stateChanged:", 'v', "@"}};
      static constexpr Protocol kClientProtocol = {"FakeDaemonClient", kClientMethods};
      const std::shared_ptr<KeldaneProxy> proxy = KeldaneProxy::create();
      proxy->setProtocol(&kClientProtocol);
      proxy->setDelegate(weak_from_this());
      {
        const std::lock_guard guard(mutex);
        peers[child.get()] = {child, proxy};
      }
      child->setSocketDelegate(shared_from_this());
      proxy->setSocket(child);  // the client's messages are received from here on
    }

    void socketFailed(const std::shared_ptr<KeldaneSocket>& child) override {
      Peer gone;
      {
        const std::lock_guard guard(mutex);
        const auto found = peers.find(child.get());
        if (found == peers.end()) {
          return;
        }
        gone = std::move(found->second);
        peers.erase(found);
      }
      end(gone);
    }

    const MethodSignature* methodSignatureForSelector(std::string_view selector) const override {
      return KeldaneDaemonProtocol.find(selector);
    }

    void invoke(Invocation& invocation) override {
      DaemonCall call{std::string(invocation.signature.selector), {}};
      for (const RawValue& argument : invocation.arguments) {
        call.arguments.push_back(argument.encoded());
      }
      Answer answer;
      {
        const std::lock_guard guard(mutex);
        calls.push_back(call);
        const auto found = answers.find(call.selector);
        if (found != answers.end()) {
          answer = found->second;
        }
      }
      called.notify_all();
      const PropertyList value = answer ? answer(call.arguments) : PropertyList();
      if (invocation.signature.returnCode != 'v') {
        const char type[] = {invocation.signature.returnCode, '\0'};
        invocation.result = RawValue::decoded(value, type);
      }
    }

    void hangUp() {
      std::map<const KeldaneSocket*, Peer> ended;
      {
        const std::lock_guard guard(mutex);
        ended.swap(peers);
      }
      for (const auto& [key, peer] : ended) {
        end(peer);
      }
    }

    static void end(const Peer& peer) {
      peer.proxy->close();
      peer.socket->close();
    }

    std::mutex mutex;  // a leaf: nothing is called while it is held
    std::condition_variable called;
    std::map<std::string, Answer> answers;
    std::vector<DaemonCall> calls;
    std::map<const KeldaneSocket*, Peer> peers;
  };

  std::vector<Peer> peers() const {
    const std::lock_guard guard(service_->mutex);
    std::vector<Peer> all;
    for (const auto& [key, peer] : service_->peers) {
      all.push_back(peer);
    }
    return all;
  }

  const std::string path_;
  const std::shared_ptr<Service> service_ = std::make_shared<Service>();
  const std::shared_ptr<KeldaneSocket> listener_ = KeldaneSocket::create();
};

}  // namespace keldane::testing
