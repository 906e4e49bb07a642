#include "hosts/gtk/GtkHost.h"

#include <optional>

#include "hosts/gtk/StatusHost.h"
#include "hosts/gtk/menu/MenuRequest.h"

namespace keldane {

namespace {

/// The milliseconds after the event that opens a menu in which the file manager may ask for its items, if it
/// has nothing else to do. With thousands of files it is busy for longer. Then the source below, which has a
/// low priority, runs later.
constexpr guint kRequestLifetime = 1000;

/// The service is never destroyed, because the plug-in's thread may be stuck when the file manager ends.
MenuService& menuService() {
  static auto* const service = new MenuService();
  return *service;
}

std::function<void()>& itemsChangedCall() {
  static auto* const call = new std::function<void()>();
  return *call;
}

guint gRequestSource = 0;  // the source that ends the request, at a low priority

void menuRequested() {
  if (gRequestSource == 0) {
    menuService().forget();
  } else {
    g_source_remove(gRequestSource);  // one opening may cause several events
  }
  const auto requestIsOver = [](gpointer) -> gboolean {
    gRequestSource = 0;
    return G_SOURCE_REMOVE;
  };
  gRequestSource = g_timeout_add_full(G_PRIORITY_LOW, kRequestLifetime, requestIsOver, nullptr, nullptr);
  if (itemsChangedCall()) {
    itemsChangedCall()();
  }
}

// Called on the plug-in's thread. The rest runs on the window's thread.
void lateMenuArrived() {
  g_idle_add(
      [](gpointer) -> gboolean {
        itemsChangedCall()();
        return G_SOURCE_REMOVE;
      },
      nullptr);
}

/// The local paths of the files. Paths that are not UTF-8 are left out. Absent when an item is not in the
/// local file system, or when no path is left.
std::optional<std::vector<std::string>> localPaths(const std::vector<GFile*>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (GFile* file : files) {
    const std::unique_ptr<char, decltype(&g_free)> path(g_file_get_path(file), g_free);
    if (!path) {
      return std::nullopt;
    }
    if (g_utf8_validate(path.get(), -1, nullptr) != FALSE) {
      paths.emplace_back(path.get());
    }
  }
  return paths.empty() ? std::nullopt : std::optional(paths);
}

Menu notRespondingMenu() {
  MenuItem item;
  item.title = menuService().notRespondingTitle();
  OfferedMenu menu;
  menu.items = {item};
  return std::make_shared<OfferedMenu>(menu);
}

/// The data that an item needs when it is chosen.
struct Choice {
  Menu menu;
  std::uint32_t command;
};

void onActivate(gpointer /*item*/, gpointer data) {
  const auto* choice = static_cast<const Choice*>(data);
  menuService().choose(*choice->menu, choice->command);
  statusService().commandWasGiven(choice->menu->paths);
}

}  // namespace

std::string labelFor(const std::string& title) {
  std::string label;
  for (const char c : title) {
    label += c == '_' ? std::string("__") : std::string(1, c);
  }
  return label;
}

void beginHost(std::function<void()> itemsChanged) {
  itemsChangedCall() = std::move(itemsChanged);
  onMenuRequest(menuRequested);
  if (itemsChangedCall()) {
    menuService().setLateListener(lateMenuArrived);
  }
}

Menu menuToShow(const std::vector<GFile*>& files) {
  const std::optional<std::vector<std::string>> paths = localPaths(files);
  if (!paths) {
    return nullptr;
  }
  if (Menu known = menuService().rememberedMenuFor(*paths)) {
    return known;
  }
  if (gRequestSource == 0) {
    return nullptr;
  }
  Menu menu = menuService().menuFor(*paths);
  return menu ? menu : notRespondingMenu();
}

void connectItem(gpointer item, const Menu& menu, std::uint32_t command) {
  g_signal_connect_data(
      item, "activate", G_CALLBACK(onActivate), new Choice{menu, command},
      [](gpointer data, GClosure*) { delete static_cast<Choice*>(data); }, static_cast<GConnectFlags>(0));
}

}  // namespace keldane
