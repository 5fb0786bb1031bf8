// The bar in which a user types what to find in a page.
//
//   FindBar bar(page);
//   gtk_container_add(container, bar.widget());
//   bar.Open();
//
// It finds while the user types; Return and Control+G find the next place,
// Control+Shift+G the one before, Escape closes the bar.
//
// Ownership: the page must outlive the bar. The widget belongs to the container
// that it is put into.
//
// Sequence: the thread of GTK.
//
// Failure: none.

#ifndef EXAMPLES_WEB_BROWSER_FRAME_FIND_BAR_H_
#define EXAMPLES_WEB_BROWSER_FRAME_FIND_BAR_H_

#include <gtk/gtk.h>

#include "examples/web_browser/frame/page.h"

namespace web_browser {

class FindBar {
 public:
  explicit FindBar(Page& page);
  FindBar(const FindBar&) = delete;
  FindBar& operator=(const FindBar&) = delete;
  ~FindBar();

  GtkWidget* widget() const { return bar_; }

  // Shows the bar and gives it the keyboard.
  void Open();

 private:
  void Find(bool forwards);
  void Close();

  Page& page_;
  GtkWidget* const bar_;
  GtkWidget* const entry_;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_FRAME_FIND_BAR_H_
