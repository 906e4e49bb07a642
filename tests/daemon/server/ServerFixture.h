// A daemon with its own socket, and peers for it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "daemon/server/DaemonServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/Client.h"
#include "tests/support/daemon/DaemonOptions.h"
#include "tests/support/process/RawPeer.h"
#include "tests/support/process/Stranger.h"

namespace keldane::testing {

class DaemonServerTest : public ::testing::Test {
 protected:
  DaemonServerTest() {
    folder_.write("home/docs/a.txt", "alpha");
    folder_.write("home/docs/b.txt", "beta");
    begin();
  }
  ~DaemonServerTest() override { end(); }
  void begin() {
    daemon_ = recordingDaemon(options_, [this] { terminated_ = true; });
    server_ = std::make_shared<DaemonServer>(daemon_, options_.socket, false, limits_);
    std::string error;
    ASSERT_TRUE(server_->start(&error)) << error;
    client_ = std::make_unique<Client>(options_.socket);
    ASSERT_TRUE(client_->connected());
  }
  void end() {
    client_.reset();
    if (server_) {
      server_->stop();
      server_.reset();
    }
    if (daemon_) {
      daemon_->stop();  // a peer's thread may hold the daemon for a moment longer
      daemon_.reset();
    }
  }
  std::string docs(const std::string& name = {}) const {
    return folder_ / ("home/docs" + (name.empty() ? "" : "/" + name));
  }
  PropertyList node(const std::string& path) { return (*client_)->dictionaryForPath(path, 0); }
  std::string state(const std::string& path) { return std::string(node(path)["state"].string()); }
  std::uint32_t simple(const std::string& path) { return node(path)["simpleFlags"].unsignedIntValue(); }
  bool becomes(const std::string& path, const std::string& text) {
    return eventually([&] { return state(path) == text; });
  }

  TemporaryFolder folder_;
  DaemonOptions options_ = daemonOptionsIn(folder_);
  ServerLimits limits_;
  std::atomic<bool> terminated_ = false;
  std::shared_ptr<Daemon> daemon_;
  std::shared_ptr<DaemonServer> server_;
  std::unique_ptr<Client> client_;
};

}  // namespace keldane::testing
