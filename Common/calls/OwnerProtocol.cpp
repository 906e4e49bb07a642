#include "Common/calls/OwnerProtocol.h"

namespace keldane {

namespace {

#define KELDANE_ROW(selector, operation) MethodSignature{selector, '@', "@"},
constexpr MethodSignature kOwnerMethods[] = {KELDANE_OWNER_METHODS(KELDANE_ROW)};
#undef KELDANE_ROW

}  // namespace

constinit const Protocol KeldaneOwnerProtocol = {"KeldaneOwnerProtocol", kOwnerMethods};

}  // namespace keldane
