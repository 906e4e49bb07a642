// Memory runs out at each allocation of a daemon in turn. Its clients get an answer or lose their link; they
// are never left waiting.
#include <gtest/gtest.h>

#include "Common/calls/DaemonProtocol.h"
#include "daemon/server/DaemonServer.h"
#include "tests/machine/CycleFixture.h"
#include "tests/machine/FailingAllocation.h"
#include "tests/support/daemon/DaemonOptions.h"
#include "tests/support/process/RawPeer.h"

namespace keldane {
namespace {

using testing::connectedTo;
using testing::FailingAllocation;
using testing::RawConnection;

/// A request for a path's node, in the format of the wire.
std::string requestFor(const std::string& path) {
  return RawConnection::frame(
      1, RawConnection::payloadOf(PropertyList::array({8, "@", "dictionaryForPath:", 1, "@", path})));
}

class ServerOutOfMemory : public ::testing::Test {
 protected:
  ServerOutOfMemory() {
    setLogReceiver([](std::string_view) {});
  }
  ~ServerOutOfMemory() override { setLogReceiver({}); }

  /// Fails each allocation of the server in this process once, while one client connects, asks and leaves.
  /// After each failure, checks that the next client gets an answer.
  void sweep(const std::string& socket, const std::string& path, const PropertyList& expected) {
    const std::string request = requestFor(path);
    int answered = 0;
    int closed = 0;
    bool failed = true;
    const long stride = testing::faultStride(5);
    for (long nth = 1; failed; nth += stride) {
      SCOPED_TRACE("allocation " + std::to_string(nth));
      {
        FailingAllocation failing(FailingAllocation::On::otherThreads, nth);
        failing.during([&] {
          RawConnection client = connectedTo(socket);
          // The connection may be closed already.
          ::send(client.descriptor(), request.data(), request.size(), MSG_NOSIGNAL);
          ASSERT_TRUE(client.isReadable(20000)) << "neither an answer nor an end";
          ++(client.read(1).empty() ? closed : answered);
        });
        failed = failing.failed();
      }
      RawConnection next = connectedTo(socket);
      next.write(request);
      ASSERT_EQ(next.readFrame().value()["state"], expected);
    }
    std::cout << answered << " clients were answered, " << closed << " lost their link\n";
    EXPECT_GT(closed, 0);
    EXPECT_GT(answered, 0);
  }
};

TEST_F(ServerOutOfMemory, AnAcceptedClientIsServedOrNotKept) {
  const testing::TemporaryFolder folder;
  testing::FakeDaemon daemon(folder / "d.sock");
  daemon.answer("dictionaryForPath:", PropertyList::dictionary({{"state", "known"}}));
  sweep(folder / "d.sock", "/a", "known");
}

TEST_F(ServerOutOfMemory, TheDaemonGoesOn) {
  const testing::TemporaryFolder folder;
  const DaemonOptions options = testing::daemonOptionsIn(folder);
  const std::string file = folder.write("home/a.txt", "content");
  const auto daemon = testing::recordingDaemon(options);
  const auto server = std::make_shared<DaemonServer>(daemon, options.socket);
  std::string error;
  ASSERT_TRUE(server->start(&error)) << error;
  // The worker sets its repository up on a thread of its own, whose allocations are counted too. The JSON
  // library that it uses ends the process when memory runs out while a value is destroyed.
  ASSERT_TRUE(testing::eventually([&] { return daemon->worker().progress().isReady; }));
  sweep(options.socket, file, "Not selected for backup");
  server->stop();
}

}  // namespace
}  // namespace keldane
