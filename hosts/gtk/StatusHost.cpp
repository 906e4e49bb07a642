#include "hosts/gtk/StatusHost.h"

#include <filesystem>
#include <memory>
#include <set>

#include "hosts/core/status/RestoreEntry.h"
#include "hosts/core/status/cache/ChangeQueue.h"
#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr guint kLookAfter = 5;  // seconds

/// The limit for folders whose files were shown while the status was switched off.
constexpr std::size_t kMostUnknown = 64;

/// The files whose status has changed. The service's thread adds them.
ChangeQueue& changes() {
  static auto* const made = new ChangeQueue();
  return *made;
}

ShownFiles gFiles;
std::set<std::string, std::less<>> gUnknown;
std::set<std::string, std::less<>> gShownFolders;  // folders whose own status was asked for
FileManagerOptions gOptions;
guint gTimer = 0;
GFileMonitor* gMonitor = nullptr;

template <class Use>
auto withFile(const std::string& path, const Use& use) {
  GFile* file = g_file_new_for_path(path.c_str());
  const std::unique_ptr<GFile, decltype(&g_object_unref)> owner(file, g_object_unref);
  return use(file);
}

gboolean tellSome(gpointer /*data*/) {
  const std::optional<std::vector<std::string>> some = changes().take(ChangeQueue::Work::now());
  if (!some) {
    return G_SOURCE_REMOVE;
  }
  for (const std::string& path : *some) {
    if (gFiles.askAgain != nullptr) {
      withFile(path, [](GFile* file) { gFiles.askAgain(file); });
    }
  }
  return G_SOURCE_CONTINUE;
}

// Called on the service's thread. The rest runs on the window's thread.
void onChanged(std::vector<std::string> paths) {
  if (changes().add(std::move(paths))) {
    constexpr auto beat = static_cast<guint>(ChangeQueue::kBeat.count());
    g_timeout_add_full(G_PRIORITY_DEFAULT_IDLE, beat, tellSome, nullptr, nullptr);
  }
}

bool isShown(const StatusCache::OpenFolder& folder) {
  for (const std::string& path : folder.samples) {
    if (withFile(path, [](GFile* file) { return gFiles.has(file); })) {
      return true;
    }
  }
  return false;
}

gboolean lookAfter(gpointer /*data*/) {
  statusService().lookAfter();
  bool isOpen = false;
  for (const StatusCache::OpenFolder& folder : statusService().openFolders()) {
    if (gFiles.has != nullptr && gOptions.needStatus() && isShown(folder)) {
      isOpen = true;
    } else {
      statusService().close(folder.path);
      gShownFolders.erase(folder.path);
    }
  }
  if (isOpen) {
    return G_SOURCE_CONTINUE;
  }
  gTimer = 0;
  return G_SOURCE_REMOVE;
}

/// The paths of the files in these folders.
std::vector<std::string> filesIn(const std::set<std::string, std::less<>>& folders) {
  std::vector<std::string> paths;
  for (const std::string& folder : folders) {
    std::error_code error;
    for (std::filesystem::directory_iterator each(folder, error), end; !error && each != end;
         each.increment(error)) {
      paths.push_back(each->path().string());
    }
  }
  return paths;
}

// The file manager asks again for the files that it shows, so that the new preferences take effect.
void onPreferences(GFileMonitor* /*monitor*/, GFile* /*file*/, GFile* /*other*/, GFileMonitorEvent /*event*/,
                   gpointer /*data*/) {
  const FileManagerOptions options = FileManagerOptions::read();
  if (options == gOptions) {
    return;
  }
  gOptions = options;
  statusService().tellAll();
  if (gOptions.needStatus() && !gUnknown.empty()) {
    statusService().perform(
        [folders = std::exchange(gUnknown, {})](DaemonLink*) { onChanged(filesIn(folders)); });
  }
}

void watchPreferences() {
  gMonitor = withFile(FileManagerOptions::file(), [](GFile* file) {
    return g_file_monitor_file(file, G_FILE_MONITOR_WATCH_MOVES, nullptr, nullptr);
  });
  if (gMonitor != nullptr) {
    g_signal_connect(gMonitor, "changed", G_CALLBACK(onPreferences), nullptr);
  }
}

std::optional<FileStatus> statusOf(const std::string& path) {
  if (gTimer == 0) {
    gTimer = g_timeout_add_seconds(kLookAfter, lookAfter, nullptr);
  }
  return statusService().statusOf(path);
}

/// Asks for a folder's own status, because the menu on its background needs it at once.
void noteFolder(std::string_view folder) {
  if (!gShownFolders.contains(folder)) {
    gShownFolders.emplace(folder);
    statusOf(std::string(folder));
  }
}

/// Remembers the folder of a file that is shown without its status.
void noteUnknown(GFile* file) {
  const std::optional<std::string> path = pathOfOwnFile(file);
  if (!path || gUnknown.contains(parentPath(*path))) {
    return;
  }
  if (gUnknown.size() >= kMostUnknown) {
    gUnknown.clear();
  }
  gUnknown.emplace(parentPath(*path));
}

bool isInTrash(const std::string& path) {
  static const std::string own = std::string(g_get_user_data_dir()) + "/Trash";
  if (isAtOrBelow(path, own)) {
    return true;
  }
  // Other file systems have their trash at the top, as .Trash or .Trash-1000.
  return path.find("/.Trash/") != std::string::npos || path.find("/.Trash-") != std::string::npos;
}

}  // namespace

/// The service is never destroyed, because its thread may be stuck when the file manager ends.
StatusService& statusService() {
  static auto* const service = new StatusService();
  return *service;
}

const FileManagerOptions& statusOptions() { return gOptions; }

void beginStatus(const ShownFiles& files) {
  gFiles = files;
  gOptions = FileManagerOptions::read();
  watchPreferences();
  if (files.askAgain != nullptr) {
    statusService().setListener(onChanged);
  }
}

void endStatus() {
  statusService().setListener(nullptr);
  gFiles = {};
  g_clear_object(&gMonitor);
  if (gTimer != 0) {
    g_source_remove(gTimer);
    gTimer = 0;
  }
  changes().clear();
}

std::optional<std::string> pathOfOwnFile(GFile* file) {
  if (file == nullptr || g_file_is_native(file) == FALSE) {
    return std::nullopt;
  }
  const std::unique_ptr<char, decltype(&g_free)> path(g_file_get_path(file), g_free);
  if (!path || g_utf8_validate(path.get(), -1, nullptr) == FALSE || isInTrash(path.get())) {
    return std::nullopt;
  }
  return path.get();
}

std::optional<FileStatus> statusToShow(GFile* file) {
  const std::optional<std::string> path = pathOfOwnFile(file);
  return path ? statusOf(*path) : std::nullopt;
}

std::optional<FileStatus> statusOfShown(GFile* file) {
  if (!gOptions.needStatus()) {
    noteUnknown(file);
    return std::nullopt;
  }
  const std::optional<std::string> path = pathOfOwnFile(file);
  if (!path) {
    return std::nullopt;
  }
  noteFolder(parentPath(*path));
  return statusOf(*path);
}

void folderIsOpened(GFile* folder) {
  if (gFiles.askAgain == nullptr || !gOptions.needStatus()) {
    return;
  }
  if (const std::optional<std::string> path = pathOfOwnFile(folder)) {
    statusService().expect(*path);
    noteFolder(*path);
  }
}

void later(std::function<void()> work) {
  g_idle_add_full(
      G_PRIORITY_DEFAULT_IDLE,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()>*>(data))();
        return G_SOURCE_REMOVE;
      },
      new std::function<void()>(std::move(work)),
      [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
}

std::string sizeText(std::uint64_t bytes) {
  const std::unique_ptr<char, decltype(&g_free)> text(g_format_size_full(bytes, G_FORMAT_SIZE_IEC_UNITS),
                                                      g_free);
  return text.get();
}

bool canOpenRestoreWindow() {
  const std::unique_ptr<char, decltype(&g_free)> found(g_find_program_in_path(kRestoreProgram), g_free);
  return found != nullptr;
}

void openRestoreWindow(const char* option, const std::string& path) {
  std::string program = kRestoreProgram;
  std::string word = option;
  std::string place = path;
  char* arguments[] = {program.data(), word.data(), place.data(), nullptr};
  GError* error = nullptr;
  const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL);
  if (g_spawn_async(nullptr, arguments, nullptr, flags, nullptr, nullptr, nullptr, &error) == FALSE) {
    systemLog("%s could not be started: %s", kRestoreProgram, error->message);
    g_error_free(error);
  }
}

}  // namespace keldane
