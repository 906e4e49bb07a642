// The bytes of frames, and the changes that faults make to them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tests/tools/faults/proxy/FaultPlan.h"

namespace keldane::testing {

// These constants repeat the transport's, so that a change there does not go unnoticed.
constexpr std::string_view kMarker = "8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04";
constexpr std::size_t kTypeAt = kMarker.size();
constexpr std::size_t kLengthAt = kTypeAt + 4;
static_assert(kHeader == kLengthAt + 4);

std::uint32_t numberAt(const std::string& frame, std::size_t at);
void setNumberAt(std::string& frame, std::size_t at, std::uint32_t number);

/// The bytes that a fault puts between two frames. They are the same for the same fault and contain no
/// marker.
std::string garbageOf(const Fault& fault);

/// The frame with one value of its payload replaced by one of another kind. The number counts the payload
/// itself first and then what it contains, depth first. A frame without a payload stays as it is.
std::string withValueSwapped(const std::string& frame, std::uint32_t number);

}  // namespace keldane::testing
