// The daemon as a program: its command line, its signals, and its life from start to end.
#pragma once

#include "daemon/Daemon.h"

namespace keldane {

/// Runs the daemon with an engine until a signal or a client ends it. Returns the exit status.
int runDaemon(int argc, char** argv, const EngineFactory& engine);

}  // namespace keldane
