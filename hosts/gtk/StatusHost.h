// The status of the files that a file manager of the GTK world shows.
#pragma once

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "config/FileManagerOptions.h"
#include "hosts/core/status/StatusService.h"

namespace keldane {

/// The functions of the file manager's library that are used for a file, on the window's thread. Files are
/// passed by location; the file manager's own objects are never kept.
struct ShownFiles {
  void (*askAgain)(GFile* file) = nullptr;  ///< makes the file manager ask again, if it has the file
  bool (*has)(GFile* file) = nullptr;       ///< whether the file manager has the file
};

/// To be called once in a process. Without functions, the file manager is not told when a status changes.
void beginStatus(const ShownFiles& files);
/// To be called when the file manager releases the extension. None of the functions is called after that.
void endStatus();

/// The options in the user's preferences.
const FileManagerOptions& statusOptions();
StatusService& statusService();

/// The path of a file in the local file system. Absent for any other file, for a file in a trash folder, and
/// for a path that is not UTF-8.
std::optional<std::string> pathOfOwnFile(GFile* file);

/// The status of a file. Absent when nothing is known of it yet, or when the backup cannot know it.
std::optional<FileStatus> statusToShow(GFile* file);
/// The status of a file that is shown in a window. Also absent when the user has switched the status off.
std::optional<FileStatus> statusOfShown(GFile* file);

/// Tells that a folder is about to be shown, so that the daemon is asked about its files before the file
/// manager asks.
void folderIsOpened(GFile* folder);

/// Runs `work` on the window's thread when that thread is idle. Any thread may call it.
void later(std::function<void()> work);
/// The size as the toolkit writes it, such as "1.5 KiB".
std::string sizeText(std::uint64_t bytes);

/// Starts the preferences program with one option and a path.
void openRestoreWindow(const char* option, const std::string& path);
/// Whether the preferences program is installed.
bool canOpenRestoreWindow();

}  // namespace keldane
