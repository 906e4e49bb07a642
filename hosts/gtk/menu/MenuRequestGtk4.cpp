#include <gtk/gtk.h>

#include "hosts/gtk/menu/MenuRequest.h"

namespace keldane {

namespace {

constexpr char kWatched[] = "keldane-watched";

std::function<void()>& theCallback() {
  static auto* const callback = new std::function<void()>();
  return *callback;
}

bool opensAMenu(GdkEvent* event) {
  if (gdk_event_triggers_context_menu(event) != FALSE) {
    return true;
  }
  switch (gdk_event_get_event_type(event)) {
    case GDK_TOUCH_BEGIN:
      return true;
    case GDK_KEY_PRESS: {
      const guint key = gdk_key_event_get_keyval(event);
      return key == GDK_KEY_Menu ||
             (key == GDK_KEY_F10 && (gdk_event_get_modifier_state(event) & GDK_SHIFT_MASK) != 0);
    }
    default:
      return false;
  }
}

gboolean onEvent(GtkEventControllerLegacy* /*controller*/, GdkEvent* event, gpointer /*data*/) {
  if (opensAMenu(event)) {
    theCallback()();
  }
  return GDK_EVENT_PROPAGATE;
}

// In the capture phase the window receives an event before the widgets in it.
void watch(GtkWidget* window) {
  if (g_object_get_data(G_OBJECT(window), kWatched) != nullptr) {
    return;
  }
  g_object_set_data(G_OBJECT(window), kWatched, window);
  GtkEventController* controller = gtk_event_controller_legacy_new();
  gtk_event_controller_set_propagation_phase(controller, GTK_PHASE_CAPTURE);
  g_signal_connect(controller, "event", G_CALLBACK(onEvent), nullptr);
  gtk_widget_add_controller(window, controller);
}

void onWindows(GListModel* windows, guint /*position*/, guint /*removed*/, guint /*added*/,
               gpointer /*data*/) {
  for (guint i = 0; i < g_list_model_get_n_items(windows); ++i) {
    auto* window = static_cast<GtkWidget*>(g_list_model_get_item(windows, i));
    watch(window);
    g_object_unref(window);
  }
}

}  // namespace

void onMenuRequest(std::function<void()> callback) {
  theCallback() = std::move(callback);
  GListModel* windows = gtk_window_get_toplevels();
  g_signal_connect(windows, "items-changed", G_CALLBACK(onWindows), nullptr);
  onWindows(windows, 0, 0, 0, nullptr);
}

}  // namespace keldane
