// The daemon's second interface: what only its own user and root may ask, on a socket of its own.
#pragma once

#include <string>

#include "Common/DaemonProtocol.h"

namespace keldane {

/// One method a question. Each takes one dictionary and answers one: "error" holds a sentence when the daemon did
/// not do what was asked, and is absent otherwise. docs/daemon-protocol.md lists the other keys.
///
///   repository:  setUpRepository:  recover:  exportKey:  importKey:  addPassphrase:  check:  find:  failures:
///   settings:  restore:  restoreReport:  cancelRestore:
extern const Protocol KeldaneOwnerProtocol;

/// Where the second socket lies, beside the first.
inline std::string ownerSocketPath(const std::string& socketPath) { return socketPath + ".owner"; }

}  // namespace keldane
