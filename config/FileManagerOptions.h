// What a person wants to see of the backup in the file managers.
#pragma once

#include <array>
#include <string>

namespace keldane {

/// The user's preferences "ShowEmblems", "ShowColumns" and "ShowRestoreEntries" in the domain
/// "com.keldane.preferences", where the text "NO" switches off. Those who show files look at them again when
/// the file has changed.
struct FileManagerOptions {
  bool emblems = true;
  bool columns = true;
  bool restoreEntries = true;
  bool operator==(const FileManagerOptions&) const = default;

  /// Whether anything is to be known of the files that are shown.
  bool needStatus() const { return emblems || columns; }

  /// As they are in the user's file now. Any thread; reads a small file.
  static FileManagerOptions read();
  /// The file that they stand in.
  static std::string file();
};

/// One of them, as programs let a person set it.
struct FileManagerSwitch {
  const char* name;  ///< on a command line
  const char* key;   ///< in the preferences
  bool FileManagerOptions::*option;

  /// Writes the user's file before it returns. False, with a line in the log, when that cannot be done; the
  /// option is then as it was. Any thread.
  bool set(bool on) const;
};

inline constexpr std::array<FileManagerSwitch, 3> kFileManagerSwitches = {{
    {"emblems", "ShowEmblems", &FileManagerOptions::emblems},
    {"columns", "ShowColumns", &FileManagerOptions::columns},
    {"restore-entries", "ShowRestoreEntries", &FileManagerOptions::restoreEntries},
}};

}  // namespace keldane
