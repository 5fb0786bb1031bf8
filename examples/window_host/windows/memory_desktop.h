// A desktop with one display, kept in memory.
//
// With it the example host behaves towards its clients as with a real window
// manager, but without a screen: states, bounds, stacking and activation depend
// on each other in the same way.
//
//   MemoryDesktop desktop(sequence, Display{});
//   int64_t id = desktop.Open();
//   desktop.Change(id, WindowAction::kMaximize, [](const absl::Status&) {...});
//
// What the state of a window follows from is said in window_form.h. At most one
// window is active; it is shown and not minimized. When it goes away, the next
// such window in stacking order takes its place, unless its activation is
// independent.
//
// A change is made at once, so that the next one builds on it. On later turns
// the observer is told and the completion runs, as for any desktop.
//
// Ownership, sequence: see window_system.h.
//
// It has no pages: the URL that a window is opened with becomes its title.
//
// Failure: FAILED_PRECONDITION where a hidden window is to be activated or
// focused, INVALID_ARGUMENT for a negative size.

#ifndef EXAMPLES_WINDOW_HOST_WINDOWS_MEMORY_DESKTOP_H_
#define EXAMPLES_WINDOW_HOST_WINDOWS_MEMORY_DESKTOP_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "core/common/rpc/loop/sequence.h"
#include "examples/window_host/windows/window_form.h"
#include "examples/window_host/windows/window_system.h"

namespace window_host {

struct Display {
  Rect bounds = {0, 0, 1920, 1080};
  // The part that the desktop's own bars leave free.
  Rect work_area = {0, 32, 1920, 1000};
};

class MemoryDesktop : public WindowSystem {
 public:
  // The sequence is the caller's and must outlive the desktop.
  MemoryDesktop(rpc::loop::Sequence& sequence, const Display& display);

  // Opens a window at once, with nothing but the desktop's choices. Ids begin
  // with 1 and are never reused.
  int64_t Open();

  // WindowSystem:
  absl::StatusOr<WindowView> Inspect(int64_t id) const override;
  std::vector<int64_t> stacking() const override { return stacking_; }
  size_t window_count() const override { return windows_.size(); }
  void Open(NewWindow window, Opened done) override;
  void Change(int64_t id, WindowChange change, Completion done) override;

 private:
  struct Window {
    // Only the id and what a client may set; View() fills in the state.
    WindowView view;
    WindowForm form;
  };

  WindowView View(const Window& window) const;

  absl::StatusOr<int64_t> OpenNow(const NewWindow& window);
  absl::Status ChangeNow(int64_t id, const WindowChange& change);
  absl::Status Apply(Window& window, WindowAction action);
  absl::Status Apply(Window& window, const BoundsChange& change);
  absl::Status Apply(Window& window, const Close& close);
  // For the messages, which set properties that nothing else depends on.
  template <typename Message>
  absl::Status Apply(Window& window, const Message& message);

  void MakeActive(int64_t id);
  void PassActivationOn(int64_t id);

  // Tells the observer on a later turn.
  void TellChanged(int64_t id);

  rpc::loop::Sequence& sequence_;
  const Display display_;
  std::map<int64_t, Window> windows_;
  std::vector<int64_t> stacking_;
  int64_t last_id_ = 0;
  // Zero when no window is active.
  int64_t active_ = 0;
  bool page_has_keyboard_ = false;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_WINDOWS_MEMORY_DESKTOP_H_
