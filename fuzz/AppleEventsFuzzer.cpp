// Descriptors, lists and records, made by random sequences of a host's calls.
#include "platform/events/AppleEvents.h"

#include <algorithm>
#include <array>

#include "fuzz/Fuzzing.h"
#include "platform/events/PathDescriptors.h"
#include "platform/objects/CFObjects.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

constexpr std::array kTypes = {typeNull,    typeWildCard,    typeAEList,      typeAERecord,
                               typeFileURL, typeAlias,       typeFSRef,       typeUTF8Text,
                               typeChar,    typeLongInteger, typeCFStringRef, fourCharCode("many")};

Bytes bytesOf(const AEDesc& desc) {
  Bytes bytes(AEGetDescDataSize(&desc));
  require(AEGetDescData(&desc, bytes.data(), bytes.size()) == kNoErr, "a descriptor's bytes are given");
  return bytes;
}

bool isKnown(OSErr error) {
  constexpr std::array kErrors = {OSErr{kNoErr},      OSErr{kParamErr}, errAECoercionFail, errAEDescNotFound,
                                  errAEWrongDataType, errAENotAEDesc,   errAEIllegalIndex};
  return std::find(kErrors.begin(), kErrors.end(), error) != kErrors.end();
}

/// The descriptors of a host, which are made, changed and released in any order.
class Host {
 public:
  explicit Host(Input& input) : input_(input) {}
  ~Host() {
    for (AEDesc& desc : slots_) {
      AEDisposeDesc(&desc);
    }
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void step() { require(isKnown(input_.number() % 2 == 0 ? make() : change()), "an error has a meaning"); }

 private:
  AEDesc& slot() { return slots_[input_.below(slots_.size())]; }
  DescType type() { return kTypes[input_.below(kTypes.size())]; }

  /// Makes a descriptor in place of another, which is released first.
  OSErr make() {
    const AEDesc& source = slot();
    AEDesc& result = slot();
    AEDisposeDesc(&result);
    const OSErr error = makeFrom(source, result);
    require(error == kNoErr || (result.descriptorType == typeNull && result.dataHandle == nullptr),
            "a failure makes a null descriptor");
    return error;
  }

  OSErr makeFrom(const AEDesc& source, AEDesc& result) {
    switch (input_.below(6)) {
      case 0:
        return withBytes([&](DescType wanted, const void* data, std::size_t size) {
          const OSErr error = AECreateDesc(wanted, data, size, &result);
          require(error != kNoErr || AEGetDescDataSize(&result) == size, "a descriptor holds its bytes");
          return error;
        });
      case 1:
        return AECreateList(nullptr, 0, input_.number() % 2 == 0, &result);
      case 2:
        require(AEDuplicateDesc(&source, &result) == kNoErr && bytesOf(result) == bytesOf(source),
                "a copy holds the same");
        return kNoErr;
      case 3: {
        const DescType wanted = type();
        const OSErr error = AECoerceDesc(&source, wanted, &result);
        require(error != kNoErr || wanted == typeWildCard || result.descriptorType == wanted,
                "a coercion makes the type that is wanted");
        const Bytes url = error == kNoErr && wanted == typeFileURL ? bytesOf(result) : Bytes();
        require(url.empty() || FileURL::withString({reinterpret_cast<const char*>(url.data()), url.size()}),
                "a file URL is one");
        return error;
      }
      case 4:
        return AEGetNthDesc(&source, input_.number<std::int16_t>(), type(), nullptr, &result);
      default:
        return AEGetParamDesc(&source, input_.number(), type(), &result);
    }
  }

  OSErr change() {
    AEDesc& target = slot();
    const std::int32_t index = input_.number<std::int16_t>();
    const AEKeyword keyword = input_.number();
    switch (input_.below(6)) {
      case 0:
        return withBytes([&](DescType wanted, const void* data, std::size_t size) {
          return AEPutPtr(&target, index, wanted, data, size);
        });
      case 1:
        return withBytes([&](DescType wanted, const void* data, std::size_t size) {
          const OSErr error = AEPutParamPtr(&target, keyword, wanted, data, size);
          std::size_t held = 0;
          require(
              error != kNoErr || (AESizeOfParam(&target, keyword, nullptr, &held) == kNoErr && held == size),
              "a record holds what was put");
          return error;
        });
      case 2: {
        std::int32_t before = 0, after = 0;
        AECountItems(&target, &before);
        const OSErr error = AEPutDesc(&target, 0, &slot());
        AECountItems(&target, &after);
        require(after == before + (error == kNoErr ? 1 : 0), "an appended item counts");
        return error;
      }
      case 3:
        return AEPutParamDesc(&target, keyword, &slot());
      case 4:
        return AECoerceDesc(&target, type(), &target);
      default: {
        std::uint8_t block[16];
        std::size_t size = 0;
        DescType found = typeNull;
        return AEGetParamPtr(&target, keyword, type(), &found, block, input_.below(17), &size);
      }
    }
  }

  /// Passes bytes, or a reference, to a call that makes an item of them. The reference is owned here unless
  /// the call takes it over.
  template <class Call>
  OSErr withBytes(const Call& call) {
    const DescType wanted = type();
    const std::string_view text = input_.text();
    if (wanted != typeCFStringRef) {
      return call(wanted, text.data(), text.size());
    }
    if (text.size() < sizeof(CFStringRef)) {
      return call(wanted, text.data(), text.size());  // without a reference
    }
    const CFStringRef reference =
        CFStringCreateWithBytes(kCFAllocatorSystemDefault, text.data(), text.size());
    const OSErr error = call(wanted, &reference, sizeof(reference));
    if (error != kNoErr) {
      CFRelease(reference);
    }
    return error;
  }

  Input& input_;
  std::array<AEDesc, 6> slots_ = {};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const long before = CFGetLiveObjectCount();
  {
    Input input(data, size);
    Host host(input);
    while (!input.isEmpty()) {
      host.step();
    }
  }
  require(CFGetLiveObjectCount() == before, "every reference is given back");
  return 0;
}
