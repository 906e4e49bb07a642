// Mounts that only the test's own process sees, and that end with it.
#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <string>

namespace keldane::testing {

/// Returns false where this user may not mount. Called before there is a second thread.
inline bool hasPrivateMounts() {
  return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

inline bool mountMemory(const std::string& point) {
  return mount("tmpfs", point.c_str(), "tmpfs", 0, "size=1m") == 0;
}

}  // namespace keldane::testing
