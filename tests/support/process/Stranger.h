// Another user's program at the other end of a socket.
#pragma once

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/support/process/RawPeer.h"

namespace keldane::testing {

/// A user whom nobody has made.
constexpr uid_t kStranger = 4123456;

/// What another user's program sees. The system notes who connects, and on Linux each thread has a user of
/// its own.
inline RawConnection connectedAs(uid_t user, const std::string& path) {
  std::unique_ptr<RawConnection> connection;
  std::thread([&] {
    EXPECT_EQ(syscall(SYS_setgroups, 0, nullptr), 0);
    EXPECT_EQ(syscall(SYS_setresgid, user, user, user), 0);
    EXPECT_EQ(syscall(SYS_setresuid, user, user, user), 0);
    connection = std::make_unique<RawConnection>(connectedTo(path));
  }).join();
  return std::move(*connection);
}

}  // namespace keldane::testing
