// The diagnostic log: a trace for support and development, off until a marker file switches it on.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "platform/syslog/SystemLog.h"

namespace keldane {

/// Whether the log is on. While it is off, each call costs one test of a byte. The value changes from false
/// to true only, so a thread that sees the change late does no harm.
extern std::atomic<bool> gLoggingEnabled;

/// Switches the log on for the rest of the process if "/tmp/keldane_logging" exists now.
void KeldaneLogStart();

inline bool KeldaneLogEnabled() { return gLoggingEnabled.load(std::memory_order_relaxed); }

/// Writes the formatted message to the system log if the log is on. Any thread may call it.
template <class... Arguments>
void KeldaneLog(const std::string& format, const Arguments&... arguments) {
  if (KeldaneLogEnabled()) {
    systemLog(format, arguments...);
  }
}

/// The same for a NUL-terminated UTF-8 format.
template <class... Arguments>
void KeldaneCLog(const char* format, const Arguments&... arguments) {
  if (KeldaneLogEnabled()) {
    systemLog(format, arguments...);
  }
}

}  // namespace keldane
