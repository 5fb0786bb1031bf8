// A module of GTK's (GTK_MODULES=/path/to/late_layout.so) with which windows
// get their layout late, as they do now and then on a busy machine: for a while
// after each of them appears the main loop has something to do that goes first.

#include <gtk/gtk.h>

namespace {

// Before the layout, which comes with GDK_PRIORITY_REDRAW, and after events.
constexpr gint kPriority = GDK_PRIORITY_REDRAW - 1;
// Of a millisecond each.
constexpr int kTurns = 1000;

gboolean TakeTurn(gpointer data) {
  auto* const turns_left = static_cast<int*>(data);
  g_usleep(1000);
  return --*turns_left > 0;
}

gboolean OnMap(GSignalInvocationHint*, guint, const GValue* values, gpointer) {
  if (GTK_IS_WINDOW(g_value_get_object(values))) {
    g_idle_add_full(kPriority, TakeTurn, new int(kTurns),
                    [](gpointer data) { delete static_cast<int*>(data); });
  }
  return TRUE;
}

}  // namespace

extern "C" G_MODULE_EXPORT void gtk_module_init(gint*, gchar***) {
  // Signals are there when the class is.
  g_type_class_ref(GTK_TYPE_WINDOW);
  g_signal_add_emission_hook(g_signal_lookup("map", GTK_TYPE_WIDGET), 0, OnMap,
                             nullptr, nullptr);
}
