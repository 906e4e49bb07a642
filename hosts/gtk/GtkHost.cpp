#include "hosts/gtk/GtkHost.h"

namespace keldane {

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

std::string labelFor(const std::string& title) {
  std::string label;
  for (const char c : title) {
    label += c == '_' ? std::string("__") : std::string(1, c);
  }
  return label;
}

MenuService& menuService() {
  static auto* const service = new MenuService();
  return *service;
}

std::shared_ptr<const OfferedMenu> notRespondingMenu() {
  MenuItem item;
  item.title = menuService().notRespondingTitle();
  OfferedMenu menu;
  menu.items = {item};
  return std::make_shared<OfferedMenu>(menu);
}

}  // namespace keldane
