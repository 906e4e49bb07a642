// The user's options for what the file managers show of the backup.
#pragma once

#include <array>
#include <string>

namespace keldane {

/// The user's preferences "ShowEmblems", "ShowColumns" and "ShowRestoreEntries" in the domain
/// "com.keldane.preferences", The text "NO" switches an option off. The file managers' extensions read the
/// options again when the file has changed.
struct FileManagerOptions {
  bool emblems = true;
  bool columns = true;
  bool restoreEntries = true;
  bool operator==(const FileManagerOptions&) const = default;

  /// Whether the status of the files that are shown is needed.
  bool needStatus() const { return emblems || columns; }

  /// Reads the options from the user's file, which is small. Any thread may call it.
  static FileManagerOptions read();
  /// The path of the user's file.
  static std::string file();
};

/// One of the options, for programs that let the user set it.
struct FileManagerSwitch {
  const char* name;  ///< name on a command line
  const char* key;   ///< key in the preferences
  bool FileManagerOptions::*option;

  /// Sets the option and writes the user's file before it returns. When the file cannot be written, it logs a
  /// line, restores the former value and returns false. Any thread may call it.
  bool set(bool on) const;
};

inline constexpr std::array<FileManagerSwitch, 3> kFileManagerSwitches = {{
    {"emblems", "ShowEmblems", &FileManagerOptions::emblems},
    {"columns", "ShowColumns", &FileManagerOptions::columns},
    {"restore-entries", "ShowRestoreEntries", &FileManagerOptions::restoreEntries},
}};

}  // namespace keldane
