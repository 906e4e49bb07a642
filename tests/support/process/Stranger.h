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

/// The number of a user who does not exist.
constexpr uid_t kStranger = 4123456;

/// A connection that another user's program makes. The kernel records the user of the connecting thread, and
/// on Linux each thread has a user of its own.
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
