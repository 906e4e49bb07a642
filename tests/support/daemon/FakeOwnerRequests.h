// Stands in for the daemon behind its second socket.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Common/calls/OwnerProtocol.h"
#include "daemon/owner/OwnerRequests.h"

namespace keldane::testing {

/// Records each request and answers an empty dictionary, or the result of `answer`.
class FakeOwnerRequests : public OwnerRequests {
 public:
  std::function<PropertyList(const std::string& operation, const PropertyList& request)> answer;

  std::vector<std::string> asked() const {
    const std::lock_guard guard(mutex_);
    return asked_;
  }

#define KELDANE_FAKE(selector, operation) \
  PropertyList operation(const PropertyList& request) override { return note(#operation, request); }
  KELDANE_OWNER_METHODS(KELDANE_FAKE)
#undef KELDANE_FAKE

 private:
  PropertyList note(const std::string& operation, const PropertyList& request) {
    {
      const std::lock_guard guard(mutex_);
      asked_.push_back(operation);
    }
    return answer ? answer(operation, request) : PropertyList::dictionary({});
  }

  mutable std::mutex mutex_;
  std::vector<std::string> asked_;
};

}  // namespace keldane::testing
