// Tells when all that the server has told by now has been looked at: something
// that comes back from the server alone, behind the events before it.
//
//   const uint64_t n = mark.Send();
//   ...
//   if (mark.OnEvent(event) && mark.passed() >= n) ...
//
// Where a fence has not come back in time, this tells whether it is the window
// manager that has let it wait, or we ourselves, who had other things to do.
//
// Ownership: the connection stays the caller's and must outlive this; the
// window whose property comes back is this object's.
//
// Sequence: the one that uses the connection.
//
// Failure: none.

#ifndef EXAMPLES_WEB_BROWSER_X11_MARK_H_
#define EXAMPLES_WEB_BROWSER_X11_MARK_H_

#include <cstdint>

#include "examples/web_browser/x11/unseen_window.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

class Mark {
 public:
  explicit Mark(Connection* connection);
  Mark(const Mark&) = delete;
  Mark& operator=(const Mark&) = delete;

  // Numbers count from 1.
  uint64_t Send();

  // Takes note of an event. True if a mark has come back by it.
  bool OnEvent(const Event& event);

  // The last that has come back; 0 before the first.
  uint64_t passed() const { return passed_; }

 private:
  Connection* const connection_;
  const UnseenWindow window_;
  uint64_t sent_ = 0;
  uint64_t passed_ = 0;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_MARK_H_
