// A window of RealDesktop: its frame on the screen, what the server says of it,
// and what is known of it beyond that: what a client has set, and where it goes
// back to.
//
//   RealWindow window(7, form, observer, display);
//   Adjust(display, window.frame(), window.managed(), ...);
//   window.Keep(target, properties);
//
// What users and window managers make of it counts from TakeOver() on; what a
// change has brought about, from Keep() on. Everything else that tells of the
// window's state asks the server at that moment.
//
// Ownership: the observer and the display must outlive it.
//
// Sequence: the display's, which is the thread of GTK.
//
// Failure: a window that the server does not know is told of as it was last.

#ifndef EXAMPLES_WEB_BROWSER_DESKTOP_REAL_WINDOW_H_
#define EXAMPLES_WEB_BROWSER_DESKTOP_REAL_WINDOW_H_

#include <cstdint>
#include <string>

#include "examples/web_browser/desktop/adjustment.h"
#include "examples/web_browser/frame/frame.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/managed_window.h"
#include "examples/web_browser/x11/window_facts.h"
#include "examples/window_host/windows/window_form.h"
#include "examples/window_host/windows/window_system.h"

namespace web_browser {

class RealWindow {
 public:
  // Not on the screen yet, wherever `form` says that it is to be.
  RealWindow(int64_t id,
             const window_host::WindowForm& form,
             FrameObserver& observer,
             x11::Desktop& display);
  RealWindow(const RealWindow&) = delete;
  RealWindow& operator=(const RealWindow&) = delete;
  ~RealWindow() = default;

  int64_t id() const { return properties_.id; }
  Frame& frame() { return frame_; }
  x11::ManagedWindow& managed() { return managed_; }
  const x11::ManagedWindow& managed() const { return managed_; }

  // Opened; until then nothing is said about it.
  bool is_open() const { return is_open_; }
  void set_open() { is_open_ = true; }

  // The id and what a client may set; View() has the state, too.
  const window_host::WindowView& properties() const { return properties_; }
  window_host::WindowView& properties() { return properties_; }

  // As it was last taken over or brought about.
  const window_host::WindowForm& form() const { return form_; }
  // A client has set bounds that the window gets when it becomes normal.
  bool bounds_wait() const { return bounds_wait_; }

  // Just now, or as `facts` say.
  window_host::WindowForm PresentForm() const;
  bool IsActive() const;
  bool IsActive(const x11::WindowFacts& facts) const;
  // Whether the toolkit paints it: not on another workspace, say.
  bool IsPainted() const;
  window_host::WindowView View() const;

  // Takes over what users, and the window manager, have made of the window.
  void TakeOver();
  // A change has brought the window there.
  void Keep(const Target& target, const window_host::WindowView& properties);

  // A title of a client: from then on the page's no longer counts.
  void SetTitle(const std::string& title);
  // Shows the title of the page, unless a client has set one.
  void ShowPageTitle();
  // Shows what a client has set.
  void ShowStyle();

 private:
  window_host::WindowForm PresentForm(const x11::WindowFacts& facts) const;
  void ShowTitle(const std::string& title);

  x11::Desktop& display_;
  window_host::WindowView properties_;
  window_host::WindowForm form_;
  // The bounds that it had before those of form_, if it was normal then.
  window_host::Rect earlier_bounds_;
  bool bounds_wait_ = false;
  bool is_titled_by_client_ = false;
  bool is_open_ = false;
  Frame frame_;
  x11::ManagedWindow managed_;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_DESKTOP_REAL_WINDOW_H_
