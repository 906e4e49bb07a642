// The resources of a process that a connection could leave behind.
#pragma once

#include <cstddef>
#include <ostream>

#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/CFObjects.h"
#include "platform/runloop/RunLoop.h"
#include "tests/support/Wait.h"

namespace keldane::testing {

struct Footprint {
  RunLoop::Load load = RunLoop::main().load();
  std::size_t observers = NotificationCenter::defaultCenter().observerCount();
  std::ptrdiff_t threads = countOf("task");
  std::ptrdiff_t descriptors = countOf("fd");
  long objects = CFGetLiveObjectCount();
  bool operator==(const Footprint&) const = default;
};

/// A footprint to compare with a later one. A sanitizer's own thread starts with the first thread of all and
/// stays, so a thread is started first. A joined thread may still be counted for a moment, so the count must
/// settle.
inline Footprint footprintAtRest() {
  std::thread([] {}).join();
  Footprint print;
  print.threads = settledThreadCount();
  return print;
}

inline std::ostream& operator<<(std::ostream& out, const Footprint& print) {
  return out << print.load.timers << " timers, " << print.load.work << " pieces of work, " << print.load.ports
             << " ports, " << print.observers << " observers, " << print.threads << " threads, "
             << print.descriptors << " descriptors, " << print.objects << " objects";
}

}  // namespace keldane::testing
