// What a person wants to see of the backup in the file manager.
#pragma once

#include <string>

namespace keldane {

/// The user's preferences "ShowEmblems", "ShowColumns" and "ShowRestoreEntries" in the domain
/// "com.keldane.preferences", where the text "NO" switches off.
struct StatusOptions {
  bool emblems = true;
  bool columns = true;
  bool restoreEntries = true;
  bool operator==(const StatusOptions&) const = default;

  /// Whether anything is to be known of the files that are shown.
  bool needStatus() const { return emblems || columns; }
};

/// As they are in the user's file now. Any thread; reads a small file.
StatusOptions readStatusOptions();
/// The file that they stand in.
std::string preferencesFile();

}  // namespace keldane
