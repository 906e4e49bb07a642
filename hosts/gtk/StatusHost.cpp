#include "hosts/gtk/StatusHost.h"

#include <deque>
#include <memory>
#include <mutex>

#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr guint kLookAfter = 5;  // seconds
/// The file manager's objects are looked up and told in slices, between which the window is drawn.
constexpr std::size_t kSlice = 200;
constexpr char kProgram[] = "keldane-preferences";

/// Files whose status has changed, from the service's thread.
struct News {
  std::mutex mutex;
  std::deque<std::string> paths;
  guint source = 0;
};

News& news() {
  static auto* const made = new News();
  return *made;
}

ShownFiles gFiles;
StatusOptions gOptions;
guint gTimer = 0;
GFileMonitor* gMonitor = nullptr;

template <class Use>
auto withFile(const std::string& path, const Use& use) {
  GFile* file = g_file_new_for_path(path.c_str());
  const std::unique_ptr<GFile, decltype(&g_object_unref)> owner(file, g_object_unref);
  return use(file);
}

gboolean tellSome(gpointer /*data*/) {
  std::vector<std::string> some;
  bool isLast = false;
  {
    const std::lock_guard guard(news().mutex);
    while (!news().paths.empty() && some.size() < kSlice) {
      some.push_back(std::move(news().paths.front()));
      news().paths.pop_front();
    }
    isLast = news().paths.empty();
    if (isLast) {
      news().source = 0;
    }
  }
  for (const std::string& path : some) {
    if (gFiles.askAgain != nullptr) {
      withFile(path, [](GFile* file) { gFiles.askAgain(file); });
    }
  }
  return isLast ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

// On the service's thread; the window's goes on from there, when it has nothing else to do.
void onChanged(std::vector<std::string> paths) {
  const std::lock_guard guard(news().mutex);
  for (std::string& path : paths) {
    news().paths.push_back(std::move(path));
  }
  if (news().source == 0) {
    news().source = g_idle_add(tellSome, nullptr);
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
    }
  }
  if (isOpen) {
    return G_SOURCE_CONTINUE;
  }
  gTimer = 0;
  return G_SOURCE_REMOVE;
}

// What is shown already is told of, so that it looks as the person wants it now.
void onPreferences(GFileMonitor* /*monitor*/, GFile* /*file*/, GFile* /*other*/, GFileMonitorEvent /*event*/,
                   gpointer /*data*/) {
  const StatusOptions options = readStatusOptions();
  if (!(options == gOptions)) {
    gOptions = options;
    statusService().tellAll();
  }
}

void watchPreferences() {
  gMonitor = withFile(preferencesFile(), [](GFile* file) {
    return g_file_monitor_file(file, G_FILE_MONITOR_WATCH_MOVES, nullptr, nullptr);
  });
  if (gMonitor != nullptr) {
    g_signal_connect(gMonitor, "changed", G_CALLBACK(onPreferences), nullptr);
  }
}

bool isInTrash(const std::string& path) {
  static const std::string own = std::string(g_get_user_data_dir()) + "/Trash";
  if (isAtOrBelow(path, own)) {
    return true;
  }
  // At the top of other file systems: .Trash and .Trash-1000.
  return path.find("/.Trash/") != std::string::npos || path.find("/.Trash-") != std::string::npos;
}

}  // namespace

/// Never taken down: its thread may be stuck when the file manager ends.
StatusService& statusService() {
  static auto* const service = new StatusService();
  return *service;
}

const StatusOptions& statusOptions() { return gOptions; }

void beginStatus(const ShownFiles& files) {
  gFiles = files;
  gOptions = readStatusOptions();
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
  const std::lock_guard guard(news().mutex);
  news().paths.clear();
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
  if (!path) {
    return std::nullopt;
  }
  if (gTimer == 0) {
    gTimer = g_timeout_add_seconds(kLookAfter, lookAfter, nullptr);
  }
  return statusService().statusOf(*path);
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
  const std::unique_ptr<char, decltype(&g_free)> found(g_find_program_in_path(kProgram), g_free);
  return found != nullptr;
}

void openRestoreWindow(const char* option, const std::string& path) {
  std::string program = kProgram;
  std::string word = option;
  std::string place = path;
  char* arguments[] = {program.data(), word.data(), place.data(), nullptr};
  GError* error = nullptr;
  const auto flags = static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL);
  if (g_spawn_async(nullptr, arguments, nullptr, flags, nullptr, nullptr, nullptr, &error) == FALSE) {
    systemLog("%s could not be started: %s", kProgram, error->message);
    g_error_free(error);
  }
}

}  // namespace keldane
