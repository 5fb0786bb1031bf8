// A browser's window as the toolkit has it: a header bar of our own, a page
// below it, and a bar for finding text.
//
//   Frame frame(7, observer);
//   frame.Map(bounds);                    a window manager takes it from there
//   frame.page().Load("https://example.org/");
//
// The header bar is an ordinary part of the window, so that window managers put
// nothing around it and bounds are exact. What the user does is told to the
// observer, which decides: nothing closes, moves to another state or runs a
// command here because of a key or a click.
//
// Ownership: the frame owns the window and its page until it is destroyed. The
// observer is the caller's and must outlive it; it may destroy the frame on a
// later turn, not when it is told something.
//
// Sequence: the thread of GTK.
//
// Failure: none.

#ifndef EXAMPLES_WEB_BROWSER_FRAME_FRAME_H_
#define EXAMPLES_WEB_BROWSER_FRAME_FRAME_H_

#include <gtk/gtk.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "examples/web_browser/frame/find_bar.h"
#include "examples/web_browser/frame/page.h"
#include "examples/window_host/windows/window_system.h"

namespace web_browser {

// Each is about the frame with this id.
class FrameObserver {
 public:
  virtual ~FrameObserver() = default;

  // The user or the page wants the window closed.
  virtual void OnCloseWanted(int64_t id) = 0;
  // The user wants a command executed; the names are those of frame.cc.
  virtual void OnCommandWanted(int64_t id, const std::string& command) = 0;
  // The user wants the context menu: DIP from the window's top left corner.
  virtual void OnMenuWanted(int64_t id, int x, int y) = 0;
  // The user wants the window in another state, or, by a click, active.
  virtual void OnActionWanted(int64_t id, window_host::WindowAction action) = 0;
  // The page wants to open another one.
  virtual void OnPageWanted(const std::string& url) = 0;
  // What the page says about itself has changed, or who has the keyboard.
  virtual void OnFrameChanged(int64_t id) = 0;
};

// How many X pixels there are to a DIP on this display.
int DisplayScale();

class Frame final : private PageObserver {
 public:
  // What the header bar shows, and what the user can do.
  struct Style {
    bool title_visible = true;
    bool titlebar_visible = true;
    std::set<rpc::WindowButton::Kind> hidden_buttons;
    rpc::WindowStyleFlags flags;
  };

  // Not mapped yet.
  Frame(int64_t id, FrameObserver& observer);
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() override;

  // The X window.
  unsigned long xid() const;

  // How many X pixels there are to a DIP in this window.
  int scale() const;

  // Calls `painted` once what is shown has been painted, with all that was
  // changed before; not at all if the frame goes before.
  void AwaitPaint(std::function<void()> painted);

  // Has the window mapped with these bounds, or unmapped. The window manager
  // confirms that later.
  void Map(const window_host::Rect& bounds);
  void Unmap();

  // The title in the header bar and for the window manager.
  void SetTitle(const std::string& title);

  void SetStyle(const Style& style);

  // Whether the window manager takes it for a tool; takes effect when it is
  // mapped.
  void SetUtility(bool utility);
  bool is_utility() const;

  // Whether the maximize button restores, which it then shows.
  void SetMaximized(bool maximized);

  // How much is seen of what is behind the window: 1.0 for nothing.
  void SetOpacityOfBackground(double alpha);

  // Gives the page the keyboard, for as long as the window is active.
  void FocusPage();
  bool page_has_focus() const;

  // Opens the context menu at that place, by the user's click there if it was
  // one.
  void OpenMenu(int x, int y, const std::vector<std::string>& commands);

  void OpenFindBar() { find_bar_.Open(); }

  Page& page() { return page_; }
  const Page& page() const { return page_; }

 private:
  void BuildHeader();
  GtkWidget* AddButton(const char* icon, const char* tooltip);
  void PlaceHeader(bool above_page);
  GtkWidget* MakeMenu(const std::vector<std::string>& commands);
  void WantCommand(const char* command);

  gboolean OnKey(GdkEventKey* event);
  gboolean OnHeaderPress(GdkEventButton* event);
  void OnMaximizeClicked();

  // PageObserver:
  void OnPageChanged() override;
  void OnPageCloses() override;
  void OnPageMenu(int x, int y, const GdkEvent* event) override;
  void OnPageOpens(const std::string& url) override;

  const int64_t id_;
  FrameObserver& observer_;
  GtkWidget* const window_;
  Page page_;
  FindBar find_bar_;
  // The page fills the overlay, which the header bar may lie on.
  GtkWidget* const rows_;
  GtkWidget* const overlay_;
  // Where the header bar is grabbed to move the window.
  GtkWidget* const handle_;
  GtkWidget* const header_;
  GtkWidget* const title_;
  GtkWidget* menu_button_ = nullptr;
  GtkWidget* close_ = nullptr;
  GtkWidget* maximize_ = nullptr;
  GtkWidget* minimize_ = nullptr;
  bool header_is_above_page_ = false;
  bool maximized_ = false;
  Style style_;
  GtkGesture* const press_;
  // The user has clicked, or pressed a key, since the page last opened another
  // one: once for each, so that no page fills the screen.
  bool page_may_open_another_ = false;
  // Who waits for the next paint.
  std::vector<std::function<void()>> awaiting_paint_;
  // The context menu that was opened last, and the click that asked for one.
  GtkWidget* menu_ = nullptr;
  GdkEvent* menu_event_ = nullptr;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_FRAME_FRAME_H_
