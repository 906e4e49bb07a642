#include "clients/ctl/layout/NodeColumns.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "cli/Json.h"
#include "clients/core/FolderTree.h"
#include "clients/core/words/Units.h"
#include "clients/ctl/Session.h"
#include "clients/ctl/layout/Text.h"

namespace keldane {

namespace {

constexpr std::size_t kFlagColumns = 8, kStateColumns = 26, kSizeColumns = 8, kDateColumns = 16;
constexpr std::string_view kGap = "  ";
constexpr std::size_t kRoomForName = 23;  // columns are left out so that the name has this much

/// Chooses the columns that leave enough room for the name, the most useful ones first.
struct ColumnsShown {
  explicit ColumnsShown(std::size_t columns)
      : left_(columns == 0 ? std::numeric_limits<std::size_t>::max()
                           : columns - std::min(columns, kRoomForName)),
        state(fits(kStateColumns)),
        flags(fits(kFlagColumns)),
        size(fits(kSizeColumns)),
        date(fits(kDateColumns)) {}

 private:
  bool fits(std::size_t columns) {
    const bool does = columns + kGap.size() <= left_;
    left_ -= does ? columns + kGap.size() : 0;
    return does;
  }
  std::size_t left_;

 public:
  const bool state, flags, size, date;
};

Color colorOf(const KeldaneFileNode& node) {
  switch (static_cast<BackupColor>(node.backupColor())) {
    case BackupColor::green:
      return Color::green;
    case BackupColor::yellow:
      return Color::yellow;
    case BackupColor::blue:
      return Color::blue;
    case BackupColor::gray:
      return Color::gray;
    case BackupColor::none:
    case BackupColor::undefined:
      break;
  }
  return Color::plain;
}

// A folder's size counts only what is loaded of it, so it means nothing in a listing that loads as it goes.
std::string sizeText(KeldaneFileNode& node) { return node.isDirectory() ? "-" : bytesText(node.sizeValue()); }

std::string fittedName(const KeldaneFileNode& node, const std::string& lead, const std::string& name,
                       std::size_t columns, const Terminal& terminal) {
  const std::string before = lastColumns(lead, columns - std::min(columns, kRoomForName / 2));
  const std::string whole = printable(name) + (node.isDirectory() && name != "/" ? "/" : "");
  const std::size_t room = columns - std::min(columns, columnsOf(before));
  return before + (columnsOf(whole) <= room ? coloredName(name, node, terminal)
                                            : terminal.colored(colorOf(node), lastColumns(whole, room)));
}

}  // namespace

std::string shortFlags(const KeldaneFileNode& node) {
  using namespace backup_flags;
  const auto letter = [&](std::uint32_t flags, char sign) {
    return (node.backupFlags() & flags) != 0 ? sign : '-';
  };
  const bool barred = (node.backupFlags() & kSystem) != 0;
  return {node.isDirectory() ? 'd' : '-',
          letter(kBackup, 's'),
          letter(kBackedUp, 'b'),
          letter(kInclude | kFolderInclude, '+'),
          barred ? '-' : letter(kExclude | kNoFolder, 'x'),
          letter(kSystem, 'p'),
          letter(kMissing, 'm'),
          node.backupPriority() == 0 ? '-' : "0123456789ABCDEF"[node.backupPriority()]};
}

std::string coloredName(const std::string& name, const KeldaneFileNode& node, const Terminal& terminal) {
  return terminal.colored(colorOf(node), printable(name)) + (node.isDirectory() && name != "/" ? "/" : "");
}

std::string row(KeldaneFileNode& node, const std::string& lead, const std::string& name,
                const RowStyle& style, const Terminal& terminal) {
  const ColumnsShown shown(style.columns);
  std::string text;
  std::size_t taken = 0;
  const auto add = [&](bool isShown, std::size_t columns, const std::string& value) {
    if (isShown) {
      text += value;
      text += kGap;
      taken += columns + kGap.size();
    }
  };
  const std::string state = lastColumns(daemonWords(node.state()), kStateColumns);
  const std::string date = hasNameThatIsNoText(node) ? "" : dateText(node.backupDate());
  add(shown.flags, kFlagColumns, shortFlags(node));
  add(shown.state, kStateColumns, terminal.colored(colorOf(node), padded(state, kStateColumns)));
  add(shown.size, kSizeColumns, rightAligned(sizeText(node), kSizeColumns));
  add(shown.date, kDateColumns, padded(date.empty() ? "-" : date, kDateColumns));
  text += style.columns == 0 ? lead + coloredName(name, node, terminal)
                             : fittedName(node, lead, name, style.columns - taken, terminal);
  return style.allFlags ? text + std::string(kGap) + node.backupFlagsString() : text;
}

nlohmann::ordered_json nodeJson(KeldaneFileNode& node) {
  nlohmann::ordered_json json = jsonValue(node.dictionary());
  const std::optional<std::string> path = node.path();
  json["path"] = path ? nlohmann::ordered_json(*path) : nlohmann::ordered_json();
  json["backupFlagsText"] = node.backupFlagsString();
  if (path && hasNameThatIsNoText(node)) {
    json["fileName"] = json["displayName"] = printable(node.fileName().string());
    json["path"] = printable(*path);
    json["pathBytes"] =
        jsonValue(PropertyList::data({reinterpret_cast<const std::uint8_t*>(path->data()), path->size()}));
    json.erase("backupDate");
  }
  return json;
}

}  // namespace keldane
