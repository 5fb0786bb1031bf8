#include "examples/window_host/service/directory_service.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "absl/strings/ascii.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/call_context.h"

namespace window_host {
namespace {

using rpc::directory::ListWindowsRequest;
using rpc::directory::OpenWindowRequest;
using rpc::directory::WindowInfo;
using rpc::directory::WindowList;
using Call = google::protobuf::RpcController;
using Done = google::protobuf::Closure;

static_assert(kMaxUrlBytes == 2048 && kMaxListBytes == 4096 &&
                  kMaxTitleBytes == 4096,
              "window_directory.proto says so");

WindowInfo::State ToState(WindowState state) {
  switch (state) {
    case WindowState::kNormal:
      return WindowInfo::STATE_NORMAL;
    case WindowState::kMaximized:
      return WindowInfo::STATE_MAXIMIZED;
    case WindowState::kFullScreen:
      return WindowInfo::STATE_FULL_SCREEN;
    case WindowState::kMinimized:
      return WindowInfo::STATE_MINIMIZED;
  }
  return WindowInfo::STATE_UNSPECIFIED;
}

// Whether the text begins with a scheme and a colon, as an absolute URL does.
bool HasScheme(std::string_view url) {
  const std::string_view scheme = url.substr(0, url.find(':'));
  return scheme.size() < url.size() && !scheme.empty() &&
         absl::ascii_isalpha(scheme.front()) &&
         std::all_of(scheme.begin(), scheme.end(), [](unsigned char c) {
           return absl::ascii_isalnum(c) || c == '+' || c == '-' || c == '.';
         });
}

// What else is wrong with a URL the desktop says, which knows what it can show.
// That it is UTF-8 has been checked when the request was parsed.
absl::Status CheckUrl(std::string_view url) {
  if (url.empty())
    return absl::OkStatus();
  if (url.size() > kMaxUrlBytes) {
    return absl::InvalidArgumentError(absl::StrCat("The URL has ", url.size(),
                                                   " bytes; a window takes at ",
                                                   "most ", kMaxUrlBytes, "."));
  }
  const auto bad = std::find_if(url.begin(), url.end(), [](unsigned char c) {
    return c == ' ' || absl::ascii_iscntrl(c);
  });
  if (bad != url.end()) {
    return absl::InvalidArgumentError(
        absl::StrCat("The URL has a space or control character at byte ",
                     bad - url.begin(), "."));
  }
  if (HasScheme(url))
    return absl::OkStatus();
  return absl::InvalidArgumentError(
      "The URL is not absolute: it needs a scheme, as in "
      "https://example.org/.");
}

NewWindow ToNewWindow(const OpenWindowRequest& request) {
  NewWindow window{.url = request.url()};
  if (request.has_x())
    window.bounds.x = request.x();
  if (request.has_y())
    window.bounds.y = request.y();
  if (request.has_width())
    window.bounds.width = request.width();
  if (request.has_height())
    window.bounds.height = request.height();
  return window;
}

void End(Call* call, Done* done, const absl::Status& status) {
  if (!status.ok())
    rpc::serving::CallContext::Of(call).Fail(status);
  done->Run();
}

class DirectoryService final : public rpc::directory::WindowDirectoryRpc {
 public:
  DirectoryService(WindowSystem& windows, const DirectoryLimits& limits)
      : windows_(windows), limits_(limits) {}

  // rpc::directory::WindowDirectoryRpc:
  void ListWindows(Call* call,
                   const ListWindowsRequest* request,
                   WindowList* list,
                   Done* done) override {
    std::vector<int64_t> ids = windows_.stacking();
    std::sort(ids.begin(), ids.end());
    size_t bytes = 0;
    for (auto id =
             std::upper_bound(ids.begin(), ids.end(), request->after().value());
         id != ids.end() && !list->more(); ++id) {
      // An open window can be inspected.
      WindowInfo info = ToInfo(*windows_.Inspect(*id));
      bytes += info.ByteSizeLong();
      if (bytes > kMaxListBytes && !list->windows().empty())
        list->set_more(true);
      else
        *list->add_windows() = std::move(info);
    }
    End(call, done, absl::OkStatus());
  }

  void OpenWindow(Call* call,
                  const OpenWindowRequest* request,
                  WindowInfo* info,
                  Done* done) override {
    absl::Status refusal = CheckUrl(request->url());
    if (refusal.ok())
      refusal = CheckRoom();
    if (!refusal.ok())
      return End(call, done, refusal);
    windows_.Open(ToNewWindow(*request),
                  [=, this](const absl::StatusOr<int64_t>& id) {
                    End(call, done, id.ok() ? Inspect(*id, info) : id.status());
                  });
  }

 private:
  absl::Status CheckRoom() const {
    if (windows_.window_count() < limits_.max_windows)
      return absl::OkStatus();
    return absl::ResourceExhaustedError(
        absl::StrCat("max_windows, ", limits_.max_windows, ", are open"));
  }

  absl::Status Inspect(int64_t id, WindowInfo* info) const {
    const absl::StatusOr<WindowView> window = windows_.Inspect(id);
    if (window.ok())
      *info = ToInfo(*window);
    return window.status();
  }

  WindowSystem& windows_;
  const DirectoryLimits limits_;
};

}  // namespace

std::unique_ptr<rpc::directory::WindowDirectoryRpc> MakeDirectoryService(
    WindowSystem& windows,
    const DirectoryLimits& limits) {
  return std::make_unique<DirectoryService>(windows, limits);
}

WindowInfo ToInfo(const WindowView& window) {
  WindowInfo info;
  info.mutable_browser_id()->set_value(window.id);
  info.set_title(window.title);
  info.set_state(ToState(window.state));
  info.set_visible(window.visible);
  info.set_active(window.active);
  rpc::Rect* bounds = info.mutable_bounds();
  bounds->set_x(window.bounds.x);
  bounds->set_y(window.bounds.y);
  bounds->set_width(window.bounds.width);
  bounds->set_height(window.bounds.height);
  return info;
}

}  // namespace window_host
