// The platform's log line.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/text/Format.h"

namespace keldane {

/// Writes one line to the system log and to standard error. Both have time, process name and process ID in
/// front, standard error also the thread ID: "2026-11-21 04:37:12.345 nautilus[812:815] text". Any thread;
/// lines are never mixed.
void logLine(std::string_view text);

/// Sends a line to the log daemon that listens at this socket: "<13>Nov 21 04:37:12 nautilus[812]: text".
/// Lost when nobody listens. syslog(3) would leave out the process ID unless openlog(3) were called, which
/// belongs to the host and would change the host's own lines.
void sendToSystemLog(std::string_view text, const char* socketPath);

/// The platform's unconditional log call. Throws nothing: a line for which there is no memory is lost, and
/// whoever wanted to write it, often because something failed already, goes on.
template <class... Arguments>
void systemLog(std::string_view format, const Arguments&... arguments) noexcept {
  try {
    logLine(stringWithFormat(format, arguments...));
  } catch (...) {  // there is no other place to say it
  }
}

/// Who receives the text of each line instead of syslog and standard error (a host's own log window, a test);
/// an empty function restores the default.
void setLogReceiver(std::function<void(std::string_view text)> receiver);

}  // namespace keldane
