#include "examples/web_browser/x11/desktop.h"

#include <utility>

#include "absl/strings/str_cat.h"
#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/error_trap.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

// Whether it can change what somebody looks for.
bool IsNews(const Event& event) {
  switch (event.type) {
    case ConfigureNotify:
    case DestroyNotify:
    case MapNotify:
    case PropertyNotify:
    case ReparentNotify:
    case UnmapNotify:
      return true;
    default:
      return false;
  }
}

}  // namespace

Desktop::Desktop(Connection* connection,
                 rpc::loop::Sequence& sequence,
                 std::chrono::milliseconds deadline)
    : connection_(connection),
      sequence_(sequence),
      root_(DefaultRootWindow(connection)),
      atoms_(std::make_unique<const Atoms>(connection)),
      fence_(connection),
      confirmations_(
          sequence,
          [this] { return fence_.Send(); },
          deadline) {
  Select(root_, PropertyChangeMask);
}

Desktop::~Desktop() {
  if (focus_window_ != 0) {
    XDestroyWindow(connection_, focus_window_);
  }
}

void Desktop::OnEvent(const Event& event) {
  if (fence_.OnEvent(event)) {
    confirmations_.OnFencePassed(fence_.passed());
  } else if (IsNews(event)) {
    confirmations_.OnEvent();
  }
}

bool Desktop::HasWindowManager() const {
  return CheckWindow() != 0;
}

// The property on the root window stays when a window manager dies. Its own
// window goes, and a window that has got the same number since does not name
// itself.
WindowId Desktop::CheckWindow() const {
  const auto window =
      ReadNumber(connection_, root_, atoms_->net_supporting_wm_check);
  if (!window || ReadNumber(connection_, *window,
                            atoms_->net_supporting_wm_check) != window) {
    return 0;
  }
  return *window;
}

std::string Desktop::WindowManagerName() const {
  const WindowId window = CheckWindow();
  std::string name = window != 0
                         ? ReadText(connection_, window, atoms_->net_wm_name)
                         : std::string();
  return name.empty() ? "the window manager" : name;
}

WindowId Desktop::ActiveWindow() const {
  return ReadNumber(connection_, root_, atoms_->net_active_window).value_or(0);
}

std::vector<WindowId> Desktop::Stacking() const {
  return ReadNumbers(connection_, root_, atoms_->net_client_list_stacking)
      .value_or(std::vector<WindowId>());
}

uint32_t Desktop::CurrentWorkspace() const {
  return static_cast<uint32_t>(
      ReadNumber(connection_, root_, atoms_->net_current_desktop).value_or(0));
}

absl::Status Desktop::Refusal(std::string_view what) const {
  if (!HasWindowManager()) {
    return absl::UnavailableError(
        absl::StrCat("There is no window manager to ", what, "."));
  }
  return absl::FailedPreconditionError(
      absl::StrCat(WindowManagerName(), " refused to ", what, "."));
}

absl::Status Desktop::Timeout(std::string_view what) const {
  return absl::DeadlineExceededError(absl::StrCat(
      WindowManagerName(), " did not answer in time to ", what, "."));
}

bool Desktop::Select(WindowId window, long events) {
  ErrorTrap trap(connection_);
  XWindowAttributes attributes;
  if (XGetWindowAttributes(connection_, window, &attributes) == 0) {
    return false;
  }
  XSelectInput(connection_, window, attributes.your_event_mask | events);
  return !trap.HasCaught();
}

void Desktop::SendToWindowManager(WindowId window,
                                  AtomId type,
                                  const std::array<long, 5>& data) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = window;
  event.xclient.message_type = type;
  event.xclient.format = 32;
  for (size_t i = 0; i < data.size(); ++i) {
    event.xclient.data.l[i] = data[i];
  }
  XSendEvent(connection_, root_, /*propagate=*/0,
             SubstructureRedirectMask | SubstructureNotifyMask, &event);
}

void Desktop::Finish(Completion done, absl::Status status) {
  sequence_.Post([done = std::move(done),
                  status = std::move(status)]() mutable { done(status); });
}

WindowId Desktop::FocusWindow() {
  if (focus_window_ == 0) {
    XSetWindowAttributes attributes{};
    attributes.override_redirect = 1;
    focus_window_ = XCreateWindow(
        connection_, root_, /*x=*/-10, /*y=*/-10, /*width=*/1,
        /*height=*/1, /*border_width=*/0, CopyFromParent, InputOnly,
        CopyFromParent, CWOverrideRedirect, &attributes);
    XMapWindow(connection_, focus_window_);
  }
  return focus_window_;
}

}  // namespace web_browser::x11
