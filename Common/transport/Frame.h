// A message on the wire: a marker of 36 characters, then the type and the length of the payload as 32-bit
// integers in the byte order of the machine, then the payload, a binary property list. A length of 0 means
// that there is no payload.
//
// KeldSocketFrames.cpp writes and reads messages. The proxy keeps the pieces of one message together.
#pragma once

#include <cstdint>
#include <string_view>

namespace keldane {

inline constexpr std::string_view kFrameMarker = "8A2E4C19-5D73-4B8F-A0E6-C93B17F52D04";

/// Types of messages. The receive thread also hands type 0 to the data delegate to say that the link failed.
/// Type 0 is never written.
inline constexpr std::int32_t kLinkFailed = 0;
inline constexpr std::int32_t kRequestFrame = 1;
inline constexpr std::int32_t kResponseFrame = 2;

}  // namespace keldane
