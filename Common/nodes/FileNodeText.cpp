// The text forms of a file node.
#include <grp.h>
#include <pwd.h>

#include <array>
#include <cerrno>

#include "Common/nodes/FileNode.h"
#include "platform/text/Format.h"

namespace keldane {

namespace {

struct FlagName {
  std::uint32_t flag;
  const char* name;
};

// Bit 17 is listed twice, so flags that have it print both names. This is kept on purpose.
constexpr FlagName kBackupFlagNames[] = {
    {backup_flags::kBackup, "Backup_Backup "},
    {backup_flags::kBackedUp, "Backup_BackedUp "},
    {backup_flags::kExclude, "Backup_Exclude "},
    {backup_flags::kInclude, "Backup_Include "},
    {backup_flags::kExtra, "Backup_Extra "},
    {backup_flags::kSystem, "Backup_System "},
    {backup_flags::kNotActive, "Backup_Not_Active "},
    {backup_flags::kFolder, "Backup_Folder "},
    {backup_flags::kMissing, "Backup_Missing "},
    {backup_flags::kNoFolder, "Backup_No_Folder "},
    {backup_flags::kNoFolder, "Backup_Folder_Exclude "},
    {backup_flags::kFolderInclude, "Backup_Folder_Include "},
    {backup_flags::kExcludedVisible, "Backup_Excluded_Visible "},
};

constexpr FlagName kSimpleFlagNames[] = {
    {simple_flags::kChecked, "Backup_Simple_Checked "},
    {simple_flags::kEnabled, "Backup_Simple_Enabled "},
    {simple_flags::kGrayed, "Backup_Simple_Grayed "},
    {simple_flags::kTypeChecked, "Backup_Simple_Type_Checked "},
    {simple_flags::kTypeEnabled, "Backup_Simple_Type_Enabled "},
    {simple_flags::kTypeVisible, "Backup_Simple_Type_Visible "},
    {simple_flags::kPriorityChecked, "Backup_Simple_Priority_Checked "},
    {simple_flags::kPriorityEnabled, "Backup_Simple_Priority_Enabled "},
    {simple_flags::kPriorityVisible, "Backup_Simple_Priority_Visible "},
};

constexpr std::array kColorNames = {"Backup_Color_Undefined", "Backup_Color_None", "Backup_Color_Green",
                                    "Backup_Color_Yellow",    "Backup_Color_Gray", "Backup_Color_Blue"};

template <std::size_t Count>
std::string namesOf(std::uint32_t flags, const FlagName (&names)[Count]) {
  std::string text;
  for (const FlagName& entry : names) {
    if ((flags & entry.flag) != 0) {
      text += entry.name;
    }
  }
  return text;
}

std::string flagText(std::uint32_t flags, const std::string& body) {
  return stringWithFormat("0x%8.8lx : %@", flags, body);
}

/// The name that getpwuid_r or getgrgid_r finds for a number, or the number as text. These functions need a
/// buffer and report when it is too small.
template <class Entry, class LookUp>
std::string accountName(std::uint32_t id, LookUp lookUp, char* Entry::*name) {
  constexpr std::size_t kLargestBuffer = std::size_t{1} << 20;
  Entry entry{};
  Entry* found = nullptr;
  std::string buffer(1024, '\0');
  int error = ERANGE;
  for (; error == ERANGE && buffer.size() <= kLargestBuffer; buffer.resize(2 * buffer.size())) {
    error = lookUp(id, &entry, buffer.data(), buffer.size(), &found);
    if (error == 0 && found != nullptr) {
      return entry.*name;
    }
  }
  return std::to_string(id);
}

}  // namespace

std::string KeldaneFileNode::backupFlagsString() const {
  if (backupFlags_ == 0) {
    return flagText(backupFlags_, "Backup_Undefined");
  }
  return flagText(backupFlags_, stringWithFormat("Backup_Priority (%d) ", backupPriority()) +
                                    namesOf(backupFlags_, kBackupFlagNames));
}

std::string KeldaneFileNode::simpleFlagsString() const {
  return flagText(simpleFlags_,
                  simpleFlags_ == 0 ? "Backup_Simple_None" : namesOf(simpleFlags_, kSimpleFlagNames));
}

PropertyList KeldaneFileNode::backupColorString() const {
  const auto color = static_cast<std::size_t>(backupColor_);
  return backupColor_ >= 0 && color < kColorNames.size() ? PropertyList(kColorNames[color]) : PropertyList();
}

// The format used here is the name of the preference that holds the user's date format, not its value. The
// name has no conversion in it, so every date prints as the name. This is kept on purpose.
std::string KeldaneFileNode::backupDateString() const {
  return backupDate_ ? "NSTimeDateFormatString" : "Never";
}

std::string KeldaneFileNode::uidString() const {
  return accountName<passwd>(uid_, getpwuid_r, &passwd::pw_name);
}

std::string KeldaneFileNode::gidString() const {
  return accountName<group>(gid_, getgrgid_r, &group::gr_name);
}

std::string KeldaneFileNode::description() const {
  return stringWithFormat(
      "%@\n    fileName: %@\n    displayName: %@\n    isDirectory: %@\n    selected: %d\n    backupFlags: "
      "%@\n"
      "    simpleFlags: %@\n    backupColor: %@\n    backupDate: %@\n    state: %@\n    version: %d\n    "
      "purgeDate: %@\n"
      "    fileCount: %d\n    size: %llu\n",
      stringWithFormat("<%s: 0x%lx>", className(), reinterpret_cast<std::uintptr_t>(this)), fileName_,
      displayName_, isDirectory_ ? "YES" : "NO", selected_, backupFlagsString(), simpleFlagsString(),
      backupColorString(), backupDate_, state_, version_.intValue(), purgeDate_, totalCount_, size_);
}

}  // namespace keldane
