#include "hosts/gtk/menu/MenuTouchUp.h"

#include <gtk/gtk.h>

#include <string>
#include <vector>

#include "hosts/gtk/GtkHost.h"

namespace keldane {

namespace {

constexpr char kTitle[] = "Keldane";

std::string& theHeading() {
  static auto* const heading = new std::string();
  return *heading;
}

std::string labelOf(GtkWidget* item) {
  const char* label = GTK_IS_MENU_ITEM(item) ? gtk_menu_item_get_label(GTK_MENU_ITEM(item)) : nullptr;
  return label == nullptr ? "" : label;
}

bool isOurs(GtkMenu* menu) {
  GtkWidget* parent = gtk_menu_get_attach_widget(menu);
  return parent != nullptr && labelOf(parent) == kTitle;
}

void touchUp(GtkMenuShell* menu) {
  GList* children = gtk_container_get_children(GTK_CONTAINER(menu));
  int position = 0;
  for (GList* child = children; child != nullptr; child = child->next, ++position) {
    auto* item = static_cast<GtkWidget*>(child->data);
    if (labelOf(item) == kSeparatorLabel) {
      // The item is hidden, not removed, because it belongs to the file manager.
      gtk_widget_hide(item);
      gtk_widget_set_no_show_all(item, TRUE);
      gtk_menu_item_set_label(GTK_MENU_ITEM(item), "");
      GtkWidget* separator = gtk_separator_menu_item_new();
      gtk_menu_shell_insert(menu, separator, position++);
      gtk_widget_show(separator);
    } else if (labelOf(item) == theHeading()) {
      gtk_widget_set_sensitive(item, FALSE);
    }
  }
  g_list_free(children);
}

gboolean onShow(GSignalInvocationHint* /*hint*/, guint /*count*/, const GValue* values, gpointer /*data*/) {
  gpointer widget = g_value_get_object(&values[0]);
  if (GTK_IS_MENU(widget) && isOurs(GTK_MENU(widget))) {
    touchUp(GTK_MENU_SHELL(widget));
  }
  return TRUE;
}

}  // namespace

void touchUpMenus() {
  g_type_class_ref(GTK_TYPE_WIDGET);  // the signal exists once the class does
  g_signal_add_emission_hook(g_signal_lookup("show", GTK_TYPE_WIDGET), 0, onShow, nullptr, nullptr);
}

void markAsHeading(const char* label) { theHeading() = label; }

}  // namespace keldane
