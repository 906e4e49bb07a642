#include "hosts/core/status/FileStatus.h"

#include <array>
#include <cmath>
#include <ctime>
#include <string_view>

#include "Common/nodes/FileNode.h"

namespace keldane {

namespace {

// A file that failed has the same flags and colour as one that is new or has changed. Only the text of its
// state tells the difference.
constexpr std::string_view kFailed = "Could not be backed up";

constexpr double kLatest = 253402300799.0;  // the end of the year 9999

Emblem emblemOf(std::uint32_t flags, BackupColor color, std::string_view state) {
  using namespace backup_flags;
  if ((flags & kMissing) != 0) {
    return Emblem::none;
  }
  if ((flags & kExclude) != 0) {
    return Emblem::excluded;
  }
  if ((flags & kBackup) == 0) {
    return Emblem::none;  // not selected
  }
  switch (color) {
    case BackupColor::green:
      return (flags & (kBackedUp | kFolder)) != 0 ? Emblem::backedUp : Emblem::none;
    case BackupColor::yellow:
      return Emblem::waiting;
    case BackupColor::blue:
      return state.starts_with(kFailed) ? Emblem::failed : Emblem::changed;
    default:
      return Emblem::none;
  }
}

std::int64_t unixTimeOf(const PropertyList& date) {
  const double seconds = date.isDate() ? date.date().unixTime() : 0;
  return seconds > 0 && seconds < kLatest ? static_cast<std::int64_t>(std::floor(seconds)) : 0;
}

}  // namespace

FileStatus fileStatusOf(const PropertyList& node) {
  PropertyList::LookUp keys(node);
  const PropertyList state = keys["state"];
  const std::uint32_t flags = keys["backupFlags"].unsignedIntValue();
  const auto color = static_cast<BackupColor>(keys["backupColor"].intValue());
  return {emblemOf(flags, color, state.string()), std::string(state.string()),
          unixTimeOf(keys["backupDate"])};
}

std::string emblemNameOf(Emblem emblem) {
  switch (emblem) {
    case Emblem::none:
      return {};
    case Emblem::backedUp:
      return "keldane-backed-up";
    case Emblem::waiting:
      return "keldane-waiting";
    case Emblem::changed:
      return "keldane-changed";
    case Emblem::failed:
      return "keldane-failed";
    case Emblem::excluded:
      return "keldane-excluded";
  }
  return {};
}

std::string iconNameOf(Emblem emblem) {
  const std::string name = emblemNameOf(emblem);
  return name.empty() ? name : "emblem-" + name;
}

std::string backupDateText(std::int64_t unixTime) {
  const auto time = static_cast<std::time_t>(unixTime);
  std::tm local{};
  std::array<char, 32> text{};
  if (unixTime == 0 || localtime_r(&time, &local) == nullptr) {
    return {};
  }
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local)};
}

}  // namespace keldane
