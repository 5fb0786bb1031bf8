#include "examples/web_browser/x11/desktop.h"

#include <algorithm>
#include <utility>

#include "absl/strings/str_cat.h"
#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/query.h"
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
      xcb_(XGetXCBConnection(connection)),
      sequence_(sequence),
      root_(DefaultRootWindow(connection)),
      atoms_(std::make_unique<const Atoms>(connection)),
      fence_(connection),
      mark_(connection),
      confirmations_(
          sequence,
          [this] { return fence_.Send(); },
          [this] { return mark_.Send(); },
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
  } else if (mark_.OnEvent(event)) {
    confirmations_.OnMarkPassed(mark_.passed());
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
  const AtomId property = atoms_->net_supporting_wm_check;
  const auto window = PropertyQuery(connection_, root_, property).Number();
  if (!window ||
      PropertyQuery(connection_, *window, property).Number() != window) {
    return 0;
  }
  return *window;
}

std::string Desktop::WindowManagerName() const {
  const WindowId window = CheckWindow();
  std::string name =
      window != 0
          ? PropertyQuery(connection_, window, atoms_->net_wm_name).Text()
          : std::string();
  return name.empty() ? "the window manager" : name;
}

WindowId Desktop::ActiveWindow() const {
  return PropertyQuery(connection_, root_, atoms_->net_active_window)
      .Number()
      .value_or(0);
}

std::vector<WindowId> Desktop::Stacking() const {
  const auto windows =
      PropertyQuery(connection_, root_, atoms_->net_client_list_stacking)
          .Numbers()
          .value_or(std::vector<uint32_t>());
  return std::vector<WindowId>(windows.begin(), windows.end());
}

uint32_t Desktop::CurrentWorkspace() const {
  return PropertyQuery(connection_, root_, atoms_->net_current_desktop)
      .Number()
      .value_or(0);
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

bool Desktop::Select(WindowId window, uint32_t events) {
  const auto number = static_cast<xcb_window_t>(window);
  const auto attributes = Query(xcb_, xcb_get_window_attributes(xcb_, number),
                                &xcb_get_window_attributes_reply)
                              .Take();
  if (attributes == nullptr) {
    return false;
  }
  const uint32_t all = attributes->your_event_mask | events;
  return Succeeds(xcb_, xcb_change_window_attributes_checked(
                            xcb_, number, XCB_CW_EVENT_MASK, &all));
}

void Desktop::SendToWindowManager(WindowId window,
                                  AtomId type,
                                  const std::array<long, 5>& data) {
  xcb_client_message_event_t event{};
  event.response_type = XCB_CLIENT_MESSAGE;
  event.window = static_cast<xcb_window_t>(window);
  event.type = static_cast<xcb_atom_t>(type);
  event.format = 32;
  std::copy(data.begin(), data.end(), event.data.data32);
  IgnoreError(xcb_, xcb_send_event_checked(
                        xcb_, /*propagate=*/0, static_cast<xcb_window_t>(root_),
                        XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT |
                            XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                        reinterpret_cast<const char*>(&event)));
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
