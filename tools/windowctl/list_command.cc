#include <cstdio>
#include <string>

#include "absl/strings/str_cat.h"
#include "rpc/directory/window_directory.pb.h"
#include "tools/cli/printable.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/text_table.h"
#include "tools/windowctl/commands.h"

namespace windowctl {
namespace {

using rpc::directory::ListWindowsRequest;
using rpc::directory::WindowInfo;
using rpc::directory::WindowList;
using rpcctl::TextTable;

// Of a longer title the table shows the beginning.
constexpr size_t kMaxTitleBytes = 80;

std::string StateText(const WindowInfo& window) {
  switch (window.state()) {
    case WindowInfo::STATE_NORMAL:
      return window.visible() ? "normal" : "hidden";
    case WindowInfo::STATE_MAXIMIZED:
      return window.visible() ? "maximized" : "hidden";
    case WindowInfo::STATE_FULL_SCREEN:
      return window.visible() ? "full screen" : "hidden";
    case WindowInfo::STATE_MINIMIZED:
      return "minimized";
    default:
      return "unknown";
  }
}

std::string BoundsText(const rpc::Rect& bounds) {
  return absl::StrCat(bounds.width(), "x", bounds.height(), " at ", bounds.x(),
                      ",", bounds.y());
}

void PrintTable(const WindowList& list) {
  TextTable table({{"ID", TextTable::kRight},
                   {"STATE"},
                   {"ACTIVE"},
                   {"BOUNDS"},
                   {"TITLE"}});
  for (const WindowInfo& window : list.windows()) {
    table.AddRow({absl::StrCat(window.browser_id().value()), StateText(window),
                  window.active() ? "yes" : "", BoundsText(window.bounds()),
                  cli::Shorten(window.title(), kMaxTitleBytes)});
  }
  std::fputs(table.ToString().c_str(), stdout);
}

// Gets all parts of the list. A host that has always more is left when
// --timeout is over; what one part says twice is a fault of the host's.
absl::Status FetchList(rpcctl::Session& session, WindowList* list) {
  const auto* method =
      rpc::directory::WindowDirectory::descriptor()->FindMethodByName(
          "ListWindows");
  ListWindowsRequest request;
  WindowList part;
  do {
    absl::Status status = session.Call(method, request, &part);
    if (!status.ok())
      return status;
    for (const WindowInfo& window : part.windows()) {
      if (window.browser_id().value() <= request.after().value())
        return absl::InternalError("the host's list is not in order");
      *request.mutable_after() = window.browser_id();
      *list->add_windows() = window;
    }
    if (part.more() && part.windows().empty())
      return absl::InternalError("the host's list does not go on");
  } while (part.more());
  return absl::OkStatus();
}

}  // namespace

rpcctl::ExitCode List(rpcctl::Session& session,
                      const rpcctl::Arguments& arguments) {
  if (!arguments.empty())
    return rpcctl::Fail(rpcctl::kUsage, "'list' takes no arguments.");
  if (const auto fault = session.Connect(); fault != rpcctl::kSuccess)
    return fault;
  WindowList list;
  if (absl::Status status = FetchList(session, &list); !status.ok())
    return rpcctl::FailOn(session.client(), status);
  if (!session.options().json) {
    PrintTable(list);
    return rpcctl::kSuccess;
  }
  for (const WindowInfo& window : list.windows())
    rpcctl::PrintLine(rpcctl::ToJson(window));
  return rpcctl::kSuccess;
}

}  // namespace windowctl
