#include "examples/web_browser/frame/find_bar.h"

namespace web_browser {

FindBar::FindBar(Page& page)
    : page_(page), bar_(gtk_search_bar_new()), entry_(gtk_search_entry_new()) {
  g_object_ref_sink(bar_);
  g_object_ref_sink(entry_);
  // The bar is never wider than the smallest window, also while it is hidden.
  gtk_entry_set_width_chars(GTK_ENTRY(entry_), 4);
  gtk_entry_set_max_width_chars(GTK_ENTRY(entry_), 40);
  gtk_container_add(GTK_CONTAINER(bar_), entry_);
  gtk_search_bar_connect_entry(GTK_SEARCH_BAR(bar_), GTK_ENTRY(entry_));
  g_signal_connect(
      entry_, "search-changed",
      G_CALLBACK(+[](GtkWidget*, FindBar* bar) { bar->Find(true); }), this);
  g_signal_connect(
      entry_, "activate",
      G_CALLBACK(+[](GtkWidget*, FindBar* bar) { bar->Find(true); }), this);
  g_signal_connect(
      entry_, "next-match",
      G_CALLBACK(+[](GtkWidget*, FindBar* bar) { bar->Find(true); }), this);
  g_signal_connect(
      entry_, "previous-match",
      G_CALLBACK(+[](GtkWidget*, FindBar* bar) { bar->Find(false); }), this);
  g_signal_connect(entry_, "stop-search",
                   G_CALLBACK(+[](GtkWidget*, FindBar* bar) { bar->Close(); }),
                   this);
}

FindBar::~FindBar() {
  g_signal_handlers_disconnect_by_data(entry_, this);
  g_object_unref(entry_);
  g_object_unref(bar_);
}

void FindBar::Open() {
  gtk_search_bar_set_search_mode(GTK_SEARCH_BAR(bar_), TRUE);
  gtk_widget_grab_focus(entry_);
}

void FindBar::Find(bool forwards) {
  page_.Find(gtk_entry_get_text(GTK_ENTRY(entry_)), forwards);
}

void FindBar::Close() {
  page_.Find("", true);
  gtk_search_bar_set_search_mode(GTK_SEARCH_BAR(bar_), FALSE);
  gtk_widget_grab_focus(page_.widget());
}

}  // namespace web_browser
