// The entries of the host's own beside the plug-in's submenu: getting things back where they are.
#pragma once

#include "hosts/core/status/FileStatus.h"
#include "platform/text/Translation.h"

namespace keldane {

/// An entry of a menu that opens the restore window.
struct RestoreEntry {
  const char* label;   ///< in English; to be shown through tr()
  const char* option;  ///< of the preferences program, which takes the path as well
};

inline constexpr char kRestoreProgram[] = "keldane-preferences";

/// The entry for the older versions of a file; null where none is stored.
inline const RestoreEntry* previousVersionEntry(const FileStatus& file) {
  static constexpr RestoreEntry entry = {marked("Restore Previous Version…"), "--restore"};
  return file.lastBackup == 0 ? nullptr : &entry;
}

/// The entry for what was deleted in a folder; null where the daemon tells this user nothing of it.
inline const RestoreEntry* missingFilesEntry(const FileStatus& folder) {
  static constexpr RestoreEntry entry = {marked("Restore Missing Files…"), "--restore-missing"};
  return folder.text.empty() ? nullptr : &entry;
}

}  // namespace keldane
