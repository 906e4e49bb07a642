// Leaves a process few free descriptors.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>

namespace keldane::testing {

/// While it exists, this many descriptors are free.
class FewDescriptors {
 public:
  explicit FewDescriptors(int free) {
    getrlimit(RLIMIT_NOFILE, &before_);
    int limit = 0;
    for (int found = 0; found <= free; ++limit) {
      found += fcntl(limit, F_GETFD) == -1 ? 1 : 0;
    }
    const rlimit few = {static_cast<rlim_t>(limit - 1), before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace keldane::testing
