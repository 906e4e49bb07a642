#include "Common/calls/DaemonProtocol.h"

#include <algorithm>

namespace keldane {

namespace {

template <char... ArgumentCodes>
constexpr char kCodeText[] = {ArgumentCodes..., '\0'};

#define KELDANE_ROW(selector, operation, returnCode, ...) \
  MethodSignature{selector, returnCode, kCodeText<__VA_ARGS__>},
constexpr MethodSignature kMethods[] = {KELDANE_DAEMON_METHODS(KELDANE_ROW)};
#undef KELDANE_ROW

}  // namespace

constinit const Protocol KeldaneDaemonProtocol = {"KeldaneDaemonProtocol", kMethods};

const MethodSignature* Protocol::find(std::string_view selector) const {
  const auto found = std::find_if(methods.begin(), methods.end(),
                                  [&](const MethodSignature& method) { return method.selector == selector; });
  return found == methods.end() ? nullptr : &*found;
}

bool Protocol::hasAnswers() const {
  return std::any_of(methods.begin(), methods.end(),
                     [](const MethodSignature& method) { return method.returnCode != 'v'; });
}

}  // namespace keldane
