// A menu as the items that the extension libraries of the GTK file managers know. The libraries differ only
// in their names; the common code is here.
#pragma once

#include <glib-object.h>

#include <string>
#include <vector>

#include "hosts/gtk/GtkHost.h"
#include "hosts/gtk/RestoreOffer.h"

namespace keldane {

/// The one object that an extension gives its file manager.
struct MenuProvider {
  GObject parent;
};
struct MenuProviderClass {
  GObjectClass parent;
};
inline constexpr char kMenuProviderName[] = "KeldaneMenuProvider";

/// The provider's type. `init`, which may be null, is called for each provider that is made.
constexpr GTypeInfo menuProviderType(GInstanceInitFunc init) {
  return {sizeof(MenuProviderClass), nullptr, nullptr, nullptr, nullptr, nullptr,
          sizeof(MenuProvider),      0,       init,    nullptr};
}

/// `Library` has, as static functions:
///   GFile* location(gpointer file): the location of the file manager's file information; owned by the caller
///   gpointer item(const char* name, const char* label, const char* icon): `icon` may be null
///   gpointer separator(const std::string& name): null when the library has no separators
///   gpointer submenu(), void append(gpointer submenu, gpointer item),
///   void attach(gpointer item, gpointer submenu)
///   void heading(const char* label): called for each entry that cannot be chosen
template <typename Library>
class MenuItems {
 public:
  /// The items for `files`, a list of the file manager's file information. The caller owns both the list and
  /// the items.
  static GList* forFiles(GList* files) {
    std::vector<GFile*> locations;
    for (GList* file = files; file != nullptr; file = file->next) {
      locations.push_back(Library::location(file->data));
    }
    const Menu menu = menuToShow(locations);
    GList* items = withOffer(previousVersionOffer(locations));
    for (GFile* location : locations) {
      g_object_unref(location);
    }
    for (std::size_t i = menu ? menu->items.size() : 0; i-- > 0;) {
      const MenuItem& top = menu->items[i];
      // An item that was once an entry cannot become a submenu under the same name.
      const std::string name = (top.items.empty() ? "Keldane::Entry" : "Keldane::Menu") + std::to_string(i);
      items = g_list_prepend(items, makeTop(top, name, menu));
    }
    return items;
  }

  /// The items for the background of a folder, which is given by the file manager's file information.
  static GList* forBackground(gpointer folder) {
    GFile* location = Library::location(folder);
    GList* items = withOffer(missingFilesOffer(location));
    g_object_unref(location);
    return items;
  }

 private:
  static GList* withOffer(const std::optional<RestoreOffer>& offer) {
    if (!offer) {
      return nullptr;
    }
    gpointer item = Library::item(offer->name, tr(offer->entry->label), nullptr);
    connectOffer(item, *offer);
    return g_list_append(nullptr, item);
  }

  static gpointer makeTop(const MenuItem& top, const std::string& name, const Menu& menu) {
    gpointer made = Library::item(name.c_str(), labelFor(top.title).c_str(), kIconName);
    if (top.items.empty()) {
      g_object_set(made, "sensitive", FALSE, nullptr);
      return made;
    }
    gpointer submenu = Library::submenu();
    int number = 0;
    for (const MenuItem& item : top.items) {
      const std::string itemName = name + "." + std::to_string(number++);
      gpointer child = item.isSeparator() ? Library::separator(itemName) : makeItem(item, itemName, menu);
      if (child != nullptr) {
        Library::append(submenu, child);
        g_object_unref(child);
      }
    }
    Library::attach(made, submenu);
    g_object_unref(submenu);
    return made;
  }

  static gpointer makeItem(const MenuItem& item, const std::string& name, const Menu& menu) {
    const std::string label = labelFor(item.title);
    gpointer made = Library::item(name.c_str(), label.c_str(), nullptr);
    if (!item.isChoosable() || item.command == 0) {
      g_object_set(made, "sensitive", FALSE, nullptr);
      Library::heading(label.c_str());
    } else {
      connectItem(made, menu, item.command);
    }
    return made;
  }
};

}  // namespace keldane
