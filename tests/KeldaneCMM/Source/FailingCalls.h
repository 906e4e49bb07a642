// Makes a platform call of the plug-in fail, once.
#pragma once

#include <string>

#include "platform/host/FourCharCode.h"

namespace keldane::testing {

/// From now on the `nth` call (counted from 1) of the function fails with `error`. The calls before and after
/// it work. The function is one of AECreateList, AEPutParamPtr, AEPutParamDesc, AEPutDesc, AEGetNthDesc,
/// AECoerceDesc and CFUUIDCreateFromString. The last one fails by returning null.
void failCall(const std::string& function, int nth, OSErr error);

/// Whether the call came and failed. Nothing fails any more after this.
bool stopFailing();

}  // namespace keldane::testing
