// Where the tests' daemons have their things.
#pragma once

#include "daemon/Daemon.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane::testing {

/// Socket and store lie in the folder, and what may be backed up in "home" below it.
inline DaemonOptions daemonOptionsIn(const TemporaryFolder& folder) {
  DaemonOptions options;
  options.socket = folder / "d.sock";
  options.store = folder / "store.sqlite";
  options.root = folder / "home";
  return options;
}

}  // namespace keldane::testing
