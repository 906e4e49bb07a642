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

/// What the file manager's library can do with a file, on the window's thread. Files are told of by their
/// place: an object of the file manager's is never kept.
struct ShownFiles {
  void (*askAgain)(GFile* file) = nullptr;  ///< has the file manager ask once more, if it has the file
  bool (*has)(GFile* file) = nullptr;       ///< whether it has the file
};

/// Once a process. Without functions nothing is told when a status changes.
void beginStatus(const ShownFiles& files);
/// When the file manager lets go of the extension: nothing of it is called any more.
void endStatus();

/// As they are in the user's preferences.
const FileManagerOptions& statusOptions();
StatusService& statusService();

/// The path of a file in the local file system that is not in a trash folder, if it is UTF-8. Nothing for
/// every other one.
std::optional<std::string> pathOfOwnFile(GFile* file);

/// What is known of a file; nothing when nothing is to be told of it.
std::optional<FileStatus> statusToShow(GFile* file);
/// Likewise for a file that stands in a window, where the person may want to see nothing.
std::optional<FileStatus> statusOfShown(GFile* file);

/// A folder is about to be shown: what lies in it is asked about before the file manager asks.
void folderIsOpened(GFile* folder);

/// Does work on the window's thread, when that has nothing else to do. Any thread.
void later(std::function<void()> work);
/// "1.5 KiB", in the toolkit's words.
std::string sizeText(std::uint64_t bytes);

/// Starts the preferences program with one option and a path.
void openRestoreWindow(const char* option, const std::string& path);
/// Whether there is one to start.
bool canOpenRestoreWindow();

}  // namespace keldane
