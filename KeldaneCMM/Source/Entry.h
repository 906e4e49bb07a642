// The boundary between the host's C calls and this plug-in.
#pragma once

#include <exception>
#include <new>

#include "log/KeldaneLog.h"
#include "platform/events/AppleEvents.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

/// Runs the body of an entry. No exception reaches the host: it is logged under the entry's name, and the
/// result is `otherwise`.
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

/// Runs the body of an examination in the same way. It answers memFullErr when memory ran out, and 0 after
/// any other exception.
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

/// Writes an entry's line to the diagnostic log. It throws nothing, so the entry does its work even when the
/// line is lost.
inline void logEntry(const char* line) noexcept { KeldaneCLog(line); }

}  // namespace keldane
