// The boundary between the host's C calls and this plug-in.
#pragma once

#include <exception>

#include "log/KeldaneLog.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

/// Runs the body of an entry. Nothing is thrown at the host: what comes out is logged under the entry's name,
/// and the entry answers `otherwise`.
template <class Result, class Body>
Result guardedEntry(const char* name, Result otherwise, const Body& body) noexcept {
  try {
    try {
      return body();
    } catch (const std::exception& exception) {
      systemLog("%s: %s", name, exception.what());
    } catch (...) {
      systemLog("%s: unknown exception", name);
    }
  } catch (...) {  // not even a line could be written
  }
  return otherwise;
}

/// Writes an entry's line to the diagnostic log. A line that cannot be written keeps no entry from its work.
inline void logEntry(const char* line) noexcept {
  guardedEntry<int>(line, 0, [&] {
    KeldaneCLog(line);
    return 0;
  });
}

}  // namespace keldane
