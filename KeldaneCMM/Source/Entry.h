// The boundary between the host's C calls and this plug-in.
#pragma once

#include <exception>

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

}  // namespace keldane
