// The places of the tests' daemons.
#pragma once

#include "daemon/Daemon.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/RecordingEngine.h"

namespace keldane::testing {

/// The socket and the store lie in the folder; the root of the backup is "home" below it.
inline DaemonOptions daemonOptionsIn(const TemporaryFolder& folder) {
  DaemonOptions options;
  options.socket = folder / "d.sock";
  options.store = folder / "store.sqlite";
  options.data = folder / "data";
  options.root = folder / "home";
  options.timing.batchDelay = {};
  return options;
}

/// A daemon that stores nothing and reports success.
inline std::shared_ptr<Daemon> recordingDaemon(
    const DaemonOptions& options, std::function<void()> terminate = [] {}) {
  return std::make_shared<Daemon>(
      options, [](const RepositoryFiles& files) { return std::make_unique<RecordingEngine>(files); },
      std::move(terminate));
}

}  // namespace keldane::testing
