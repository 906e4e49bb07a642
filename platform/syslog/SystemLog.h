// The platform's log line.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/text/Format.h"

namespace keldane {

/// Writes one line to the system log and to standard error. Time, process name and process ID stand in front,
/// on standard error also the thread ID: "2026-11-21 04:37:12.345 nautilus[812:815] text". Any thread may
/// call it; lines are never mixed.
void logLine(std::string_view text);

/// Sends a line to the log daemon that listens at this socket: "<13>Nov 21 04:37:12 nautilus[812]: text". The
/// line is lost when nobody listens. syslog(3) would leave out the process ID unless openlog(3) were called,
/// which belongs to the host and would change the host's own lines.
void sendToSystemLog(std::string_view text, const char* socketPath);

/// The platform's unconditional log call. It throws nothing, because its callers often log a failure and must
/// go on. A line for which there is no memory is lost.
template <class... Arguments>
void systemLog(std::string_view format, const Arguments&... arguments) noexcept {
  try {
    logLine(stringWithFormat(format, arguments...));
  } catch (...) {  // there is no other place to report it
  }
}

/// Sets the function that receives the text of each line instead of syslog and standard error, for a host's
/// own log window or a test. An empty function restores the default.
void setLogReceiver(std::function<void(std::string_view text)> receiver);

}  // namespace keldane
