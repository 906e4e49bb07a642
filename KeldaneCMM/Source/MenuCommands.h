// The command numbers of the menu's items.
#pragma once

#include <cstdint>

#include "platform/host/FourCharCode.h"

namespace keldane {

inline constexpr std::uint32_t kCommandSubmenu = fourCharCode("r2d2");  ///< the submenu's own parent item
inline constexpr std::uint32_t kCommandStatus = fourCharCode("r2d3");
inline constexpr std::uint32_t kCommandFirstSeparator = fourCharCode("r2d4");
inline constexpr std::uint32_t kCommandBackup = fourCharCode("r2d<");
inline constexpr std::uint32_t kCommandExclude = fourCharCode("r2d=");
inline constexpr std::uint32_t kCommandBackupASAP = fourCharCode("r2d>");
/// The two commands for file types are carried out when they arrive, but no menu contains them.
inline constexpr std::uint32_t kCommandBackupType = fourCharCode("r2d?");
inline constexpr std::uint32_t kCommandExcludeType = fourCharCode("r2d@");
inline constexpr std::uint32_t kCommandSecondSeparator = fourCharCode("r2dA");
inline constexpr std::uint32_t kCommandPreferences = fourCharCode("r2dB");

}  // namespace keldane
