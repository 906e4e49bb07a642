#include <gtk/gtk.h>

#include "hosts/gtk/menu/MenuRequest.h"

namespace keldane {

namespace {

std::function<void()>& theCallback() {
  static auto* const callback = new std::function<void()>();
  return *callback;
}

// An emission hook runs before every handler of the signal.
gboolean onButton(GSignalInvocationHint* /*hint*/, guint count, const GValue* values, gpointer /*data*/) {
  const auto* event = count < 2 ? nullptr : static_cast<const GdkEvent*>(g_value_get_boxed(&values[1]));
  if (event != nullptr && (gdk_event_triggers_context_menu(event) != FALSE)) {
    theCallback()();
  }
  return TRUE;
}

// Thunar handles these keys itself, so the signal "popup-menu" does not come for them.
gboolean onKey(GSignalInvocationHint* /*hint*/, guint count, const GValue* values, gpointer /*data*/) {
  const auto* event = count < 2 ? nullptr : static_cast<const GdkEventKey*>(g_value_get_boxed(&values[1]));
  if (event != nullptr && (event->keyval == GDK_KEY_Menu ||
                           (event->keyval == GDK_KEY_F10 && (event->state & GDK_SHIFT_MASK) != 0))) {
    theCallback()();
  }
  return TRUE;
}

gboolean onPopup(GSignalInvocationHint* /*hint*/, guint /*count*/, const GValue* /*values*/,
                 gpointer /*data*/) {
  theCallback()();
  return TRUE;
}

void hook(const char* signal, GSignalEmissionHook function) {
  g_type_class_ref(GTK_TYPE_WIDGET);  // the signals exist once the class does
  g_signal_add_emission_hook(g_signal_lookup(signal, GTK_TYPE_WIDGET), 0, function, nullptr, nullptr);
}

}  // namespace

void onMenuRequest(std::function<void()> callback) {
  theCallback() = std::move(callback);
  hook("button-press-event", onButton);
  hook("key-press-event", onKey);
  hook("popup-menu", onPopup);
}

}  // namespace keldane
