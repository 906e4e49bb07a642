// The daemon's end of the second socket, for one peer.
#pragma once

#include <memory>

#include "Common/calls/OwnerProtocol.h"
#include "daemon/owner/OwnerRequests.h"

namespace keldane {

/// Checks each request and passes it on. A request that is no dictionary, lacks a key that must be there or
/// has a value of the wrong kind is answered with an "error", as is one whose operation throws. Requests are
/// never logged, because they may hold a key. Called on the peer's receive thread.
class OwnerService final : public InvocationTarget {
 public:
  explicit OwnerService(std::shared_ptr<OwnerRequests> requests) : requests_(std::move(requests)) {}

  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override;
  void invoke(Invocation& invocation) override;

 private:
  const std::shared_ptr<OwnerRequests> requests_;  // a request that is being performed may outlive the server
};

}  // namespace keldane
