// The platform's log line.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/syslog/Format.h"

namespace keldane {

/// Writes one line to syslog(3), and to standard error with time stamp, process name, process ID and thread
/// ID in front: "2026-11-21 04:37:12.345 nautilus[812:815] text". Any thread; lines are never mixed.
void logLine(std::string_view text);

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
