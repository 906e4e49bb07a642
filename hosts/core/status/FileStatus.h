// The backup status of one file as a file manager shows it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The small picture on a file's icon.
enum class Emblem : std::uint8_t { none, backedUp, waiting, changed, failed, excluded };

struct FileStatus {
  Emblem emblem = Emblem::none;
  std::string text;             ///< the daemon's words; empty when it knows nothing of the file
  std::int64_t lastBackup = 0;  ///< seconds since the UNIX epoch; 0: never
  bool operator==(const FileStatus&) const = default;
};

/// Makes the status from the dictionary of a node. An absent dictionary stands for a file of which nothing is
/// known. An unknown colour has no emblem.
FileStatus fileStatusOf(const PropertyList& node);

/// The name of the emblem's icon. The GTK file managers put "emblem-" in front of it themselves. Empty for no
/// emblem.
std::string emblemNameOf(Emblem emblem);
/// The name of the icon in the icon theme.
std::string iconNameOf(Emblem emblem);

/// For example "2026-11-21 15:04", in local time. Sorted as text, such dates are in the order of time. Empty
/// for 0.
std::string backupDateText(std::int64_t unixTime);

}  // namespace keldane
