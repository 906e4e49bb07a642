// What a file manager shows of one file at a glance.
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

/// From the dictionary of a node; an absent one is a file of which nothing is known. An unknown colour has no
/// emblem.
FileStatus fileStatusOf(const PropertyList& node);

/// The name of the emblem's icon, to which the GTK file managers themselves add "emblem-" in front. Empty for
/// no emblem.
std::string emblemNameOf(Emblem emblem);
/// The name of the icon in the icon theme.
std::string iconNameOf(Emblem emblem);

/// "2026-11-21 15:04" in local time, which sorts as text as it does in time; empty for 0.
std::string backupDateText(std::int64_t unixTime);

}  // namespace keldane
