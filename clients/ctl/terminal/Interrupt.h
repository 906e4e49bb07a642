// Handles Ctrl-C for a program that must clean up before it ends.
#pragma once

#include <chrono>

#include "platform/files/Descriptor.h"

namespace keldane {

/// While an object lives, the first SIGINT or SIGTERM is noted instead of ending the process; a second one
/// ends it. Only one object may live at a time.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// Waits for this long, or until the first signal comes. Returns true when a signal has come, now or
  /// earlier.
  bool wait(std::chrono::milliseconds time);

 private:
  Descriptor reading_, writing_;
  bool came_ = false;
};

}  // namespace keldane
