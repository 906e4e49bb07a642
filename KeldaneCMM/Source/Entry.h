// The boundary between the host's C calls and this plug-in.
#pragma once

#include <exception>
#include <new>

#include "log/KeldaneLog.h"
#include "platform/events/AppleEvents.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

/// Runs the body of an entry. No exception reaches the host: it is logged under the entry's name, and the
/// entry answers `otherwise`.
template <class Result, class Body>
Result guardedEntry(const char* name, Result otherwise, const Body& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    systemLog("%s: out of memory", name);
  } catch (const std::exception& exception) {
    systemLog("%s: %s", name, exception.what());
  } catch (...) {
    systemLog("%s: unknown exception", name);
  }
  return otherwise;
}

/// The same for an examination, which answers a status: memFullErr when memory ran out, 0 for any other
/// exception.
template <class Body>
OSStatus guardedStatus(const char* name, const Body& body) noexcept {
  return guardedEntry<OSStatus>(name, kNoErr, [&]() -> OSStatus {
    try {
      return body();
    } catch (const std::bad_alloc&) {
      systemLog("%s: out of memory", name);
      return memFullErr;
    }
  });
}

/// Writes an entry's line to the diagnostic log. A line that cannot be written keeps no entry from its work.
inline void logEntry(const char* line) noexcept { KeldaneCLog(line); }

}  // namespace keldane
