// This program's own functions of these names are found before the platform library's, which they call.
#include "tests/KeldaneCMM/Source/FailingCalls.h"

#include <dlfcn.h>

#include "platform/events/AppleEvents.h"
#include "platform/objects/CFObjects.h"

namespace keldane::testing {

namespace {

struct Plan {
  std::string function;
  int callsLeft = 0;
  OSErr error = kNoErr;
};

Plan plan;

bool isTheOneToFail(const char* function) { return plan.function == function && --plan.callsLeft == 0; }

template <class Function, class... Arguments>
OSErr callOrFail(const char* name, Function* /*type*/, Arguments... arguments) {
  if (isTheOneToFail(name)) {
    return plan.error;
  }
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

void failCall(const std::string& function, int nth, OSErr error) { plan = {function, nth, error}; }

bool stopFailing() {
  const bool failed = !plan.function.empty() && plan.callsLeft <= 0;
  plan = {};
  return failed;
}

}  // namespace keldane::testing

using keldane::testing::callOrFail;

extern "C" {

OSErr AECreateList(const void* factoringPtr, std::size_t factoredSize, bool isRecord, AEDescList* result) {
  *result = {keldane::typeNull, nullptr};
  return callOrFail("AECreateList", &AECreateList, factoringPtr, factoredSize, isRecord, result);
}

OSErr AEPutParamPtr(AERecord* record, AEKeyword keyword, DescType type, const void* data, std::size_t size) {
  return callOrFail("AEPutParamPtr", &AEPutParamPtr, record, keyword, type, data, size);
}

OSErr AEPutParamDesc(AERecord* record, AEKeyword keyword, const AEDesc* desc) {
  return callOrFail("AEPutParamDesc", &AEPutParamDesc, record, keyword, desc);
}

OSErr AEPutDesc(AEDescList* list, std::int32_t index, const AEDesc* desc) {
  return callOrFail("AEPutDesc", &AEPutDesc, list, index, desc);
}

OSErr AEGetNthDesc(const AEDescList* list, std::int32_t index, DescType desiredType, AEKeyword* keyword,
                   AEDesc* result) {
  *result = {keldane::typeNull, nullptr};
  return callOrFail("AEGetNthDesc", &AEGetNthDesc, list, index, desiredType, keyword, result);
}

OSErr AECoerceDesc(const AEDesc* desc, DescType toType, AEDesc* result) {
  return callOrFail("AECoerceDesc", &AECoerceDesc, desc, toType, result);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef string) {
  if (keldane::testing::isTheOneToFail("CFUUIDCreateFromString")) {
    return nullptr;
  }
  return reinterpret_cast<decltype(&CFUUIDCreateFromString)>(dlsym(RTLD_NEXT, "CFUUIDCreateFromString"))(
      allocator, string);
}
}
