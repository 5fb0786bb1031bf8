// A web page in a window: what WebKit draws, in a process of its own.
//
//   Page page(observer);
//   gtk_container_add(container, page.widget());
//   page.Load("https://example.org/");
//
// A page's process that crashes, or that eats more memory than kMaxPageBytes,
// is replaced by one that says so; "reload" loads the page again. Nothing that
// a page does reaches beyond its observer: its titles are as it wrote them,
// downloads and new windows without a click are refused.
//
// Ownership: the page owns its widget until it is destroyed; the observer is
// the caller's and must outlive it.
//
// Sequence: the thread of GTK, on which the observer is told.
//
// Failure: shown as a page.

#ifndef EXAMPLES_WEB_BROWSER_FRAME_PAGE_H_
#define EXAMPLES_WEB_BROWSER_FRAME_PAGE_H_

#include <webkit2/webkit2.h>

#include <cstddef>
#include <string>

namespace web_browser {

class PageObserver {
 public:
  virtual ~PageObserver() = default;

  // Its title, its process or whether that responds has changed.
  virtual void OnPageChanged() = 0;

  // The page wants its window to be closed.
  virtual void OnPageCloses() = 0;

  // The user wants a context menu, at that place in the page's widget.
  virtual void OnPageMenu(int x, int y, const GdkEvent* event) = 0;

  // The page wants to open another one in a window of its own.
  virtual void OnPageOpens(const std::string& url) = 0;
};

class Page {
 public:
  // More than this ends the page's process. It is looked at so often that a
  // page that grows fast does not take the whole machine's memory meanwhile.
  static constexpr size_t kMaxPageBytes = size_t{2} << 30;
  static constexpr double kSecondsBetweenLooks = 1;

  explicit Page(PageObserver& observer);
  Page(const Page&) = delete;
  Page& operator=(const Page&) = delete;
  ~Page();

  GtkWidget* widget() const { return GTK_WIDGET(view_); }

  // An URL, or a file's path or a host's name, as people write them.
  void Load(const std::string& url);

  // The title as the page gives it: any text. Empty for none.
  std::string title() const;

  bool is_responsive() const;

  // Executes a command of the user's: back, forward, reload, copy, paste,
  // zoom_in, zoom_out, zoom_reset or print. Others do nothing.
  void Execute(const std::string& command);

  // Finds the text from where the last find ended, or backwards. Empty: ends
  // finding.
  void Find(const std::string& text, bool forwards);

  // How much of what is behind the page is seen through its background: 1.0
  // for nothing.
  void SetBackgroundAlpha(double alpha);

 private:
  void Print();
  void Zoom(double factor);

  void OnTerminated(WebKitWebProcessTerminationReason reason);

  PageObserver& observer_;
  WebKitWebView* const view_;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_FRAME_PAGE_H_
