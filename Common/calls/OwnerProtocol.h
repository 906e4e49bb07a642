// The daemon's second interface, on a socket of its own. Only the daemon's user and root may use it.
#pragma once

#include <string>

#include "Common/calls/DaemonProtocol.h"

// METHOD(selector, operation). Each method takes one dictionary and returns one.
// clang-format off
#define KELDANE_OWNER_METHODS(METHOD) \
  METHOD("repository:",      repository)      \
  METHOD("setUpRepository:", setUpRepository) \
  METHOD("recover:",         recover)         \
  METHOD("exportKey:",       exportKey)       \
  METHOD("importKey:",       importKey)       \
  METHOD("verifyKey:",       verifyKey)       \
  METHOD("addPassphrase:",   addPassphrase)   \
  METHOD("check:",           check)           \
  METHOD("find:",            find)            \
  METHOD("failures:",        failures)        \
  METHOD("settings:",        settings)        \
  METHOD("surroundings:",    surroundings)    \
  METHOD("restore:",         restore)         \
  METHOD("restoreReport:",   restoreReport)   \
  METHOD("cancelRestore:",   cancelRestore)   \
  METHOD("backups:",         backups)         \
  METHOD("storedFolder:",    storedFolder)    \
  METHOD("changeKey:",       changeKey)       \
  METHOD("moveRepository:",  moveRepository)  \
  METHOD("moveReport:",      moveReport)      \
  METHOD("cancelMove:",      cancelMove)      \
  METHOD("previewPattern:",  previewPattern)
// clang-format on

namespace keldane {

/// The protocol of the second interface. An answer has the key "error", with a sentence, when the daemon did
/// not carry out the request. daemon/owner/OwnerRequests.h and docs/protocol/methods.md list the other keys.
extern const Protocol KeldaneOwnerProtocol;

/// The path of the second socket, which lies beside the first.
inline std::string ownerSocketPath(const std::string& socketPath) { return socketPath + ".owner"; }

/// The client's end: gives `Caller` a member function for each method. `Caller` has `RawValue
/// call(std::string_view selector, Arguments arguments)`.
template <class Caller>
class OwnerCalls {
 public:
#define KELDANE_CALL(selector, operation)                                                  \
  PropertyList operation(const PropertyList& request) {                                    \
    return Codes<'@'>::template call<'@'>(static_cast<Caller&>(*this), selector, request); \
  }
  KELDANE_OWNER_METHODS(KELDANE_CALL)
#undef KELDANE_CALL
};

/// The daemon's end: performs an incoming call on the member function of `Service` that the table names.
/// Returns false for a selector that is not in the table.
template <class Service>
bool performOwnerCall(Service& service, Invocation& invocation) {
#define KELDANE_PERFORM(selector_, operation)                                                               \
  if (invocation.signature.selector == (selector_)) {                                                       \
    Codes<'@'>::template perform<'@'>(invocation,                                                           \
                                      [&](const PropertyList& given) { return service.operation(given); }); \
    return true;                                                                                            \
  }
  KELDANE_OWNER_METHODS(KELDANE_PERFORM)
#undef KELDANE_PERFORM
  return false;
}

}  // namespace keldane
