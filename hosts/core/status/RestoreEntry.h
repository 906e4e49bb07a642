// The menu entries that the host itself puts beside the plug-in's submenu. They restore files in place.
#pragma once

#include "hosts/core/status/FileStatus.h"
#include "platform/text/Translation.h"

namespace keldane {

/// An entry of a menu that opens the restore window.
struct RestoreEntry {
  const char* label;   ///< in English; to be shown through tr()
  const char* option;  ///< option of the preferences program; the path follows it
};

inline constexpr char kRestoreProgram[] = "keldane-preferences";

/// The entry for the older versions of a file. Null when none is stored.
inline const RestoreEntry* previousVersionEntry(const FileStatus& file) {
  static constexpr RestoreEntry entry = {marked("Restore Previous Version…"), "--restore"};
  return file.lastBackup == 0 ? nullptr : &entry;
}

/// The entry for the deleted files of a folder. Null when the daemon tells this user nothing about the
/// folder.
inline const RestoreEntry* missingFilesEntry(const FileStatus& folder) {
  static constexpr RestoreEntry entry = {marked("Restore Missing Files…"), "--restore-missing"};
  return folder.text.empty() ? nullptr : &entry;
}

}  // namespace keldane
