// Helpers that the files of RepositoryRequests share.
#pragma once

#include <string>

#include "daemon/owner/repository/RepositoryRequests.h"

namespace keldane {

/// A call of the engine that stop() can end. Its job is registered for the lifetime of the object.
class RepositoryRequests::Call {
 public:
  explicit Call(RepositoryRequests& requests) : requests_(requests) {
    const ScopedLock guard(requests_.callsMutex_);
    requests_.calls_.insert(&job);
    job.cancelled = requests_.stopping_;
  }
  ~Call() {
    const ScopedLock guard(requests_.callsMutex_);
    requests_.calls_.erase(&job);
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  EngineJob job;

 private:
  RepositoryRequests& requests_;
};

/// An answer with the reason why nothing was done.
inline PropertyList errorAnswer(const std::string& sentence) {
  return PropertyList::dictionary({{"error", sentence.empty() ? std::string("It did not work.") : sentence}});
}

}  // namespace keldane
