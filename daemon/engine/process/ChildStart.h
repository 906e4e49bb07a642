// Starting a child process: the code between fork and exec.
#pragma once

#include <sys/types.h>

#include "daemon/engine/process/ChildProcess.h"

namespace keldane {

/// Starts the program with these descriptors as its standard output and error. Returns its process id, or -1
/// with the error number.
pid_t startChild(const ChildCommand& command, int output, int errors, bool lowPriority, int* error);

}  // namespace keldane
