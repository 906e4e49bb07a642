#include "clients/ctl/terminal/NodeColumns.h"

#include "cli/Json.h"
#include "clients/core/Units.h"
#include "clients/ctl/terminal/Text.h"

namespace keldane {

namespace {

constexpr std::size_t kStateColumns = 26, kSizeColumns = 8, kDateColumns = 16;

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

// A folder's size is what is loaded of it, so it says nothing in a listing that loads as it goes.
std::string sizeText(KeldaneFileNode& node) { return node.isDirectory() ? "-" : bytesText(node.sizeValue()); }

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
  const std::string state = printable(node.state().string());
  std::string text =
      shortFlags(node) + "  " +
      terminal.colored(colorOf(node), padded(lastColumns(state, kStateColumns), kStateColumns)) + "  " +
      rightAligned(sizeText(node), kSizeColumns);
  if (style.withDate) {
    const std::string date = dateText(node.backupDate());
    text += "  " + padded(date.empty() ? "-" : date, kDateColumns);
  }
  text += "  " + lead + coloredName(name, node, terminal);
  return style.allFlags ? text + "  " + node.backupFlagsString() : text;
}

nlohmann::ordered_json nodeJson(KeldaneFileNode& node) {
  nlohmann::ordered_json json = jsonValue(node.dictionary());
  json["path"] = node.path() ? nlohmann::ordered_json(*node.path()) : nlohmann::ordered_json();
  json["backupFlagsText"] = node.backupFlagsString();
  return json;
}

}  // namespace keldane
