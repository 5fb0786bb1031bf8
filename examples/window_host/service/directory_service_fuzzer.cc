// Opens windows with any requests, and lists them from any place: what is
// refused opens none, and whoever lists from the beginning gets each window
// once.
//
// The input is a list of requests: one byte says what is asked for, the next
// one how long the request is.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "core/common/rpc/testing/recording_call.h"
#include "examples/window_host/service/directory_service.h"
#include "examples/window_host/windows/memory_desktop.h"

namespace window_host {
namespace {

using rpc::directory::ListWindowsRequest;
using rpc::directory::OpenWindowRequest;
using rpc::directory::WindowDirectoryRpc;
using rpc::directory::WindowInfo;
using rpc::directory::WindowList;

// With long URLs more than one reply has room for.
constexpr size_t kMaxWindows = 24;

class Directory {
 public:
  void Take(uint8_t what, const std::string& bytes) {
    OpenWindowRequest open;
    ListWindowsRequest list;
    // Others do not get as far as the service.
    if (what % 2 == 0 && open.ParseFromString(bytes))
      Open(open);
    else if (what % 2 == 1 && list.ParseFromString(bytes))
      List(list);
    ListAll();
  }

 private:
  void Open(const OpenWindowRequest& request) {
    WindowInfo info;
    rpc::serving::CallContext context;
    torvane::CountingClosure done;
    service_->OpenWindow(&context, &request, &info, &done);
    sequence_.Run();
    EXPECT_EQ(1, done.runs());
    if (!context.status().ok()) {
      EXPECT_TRUE(absl::IsInvalidArgument(context.status()) ||
                  absl::IsResourceExhausted(context.status()))
          << context.status();
      return;
    }
    EXPECT_TRUE(opened_.insert(info.browser_id().value()).second);
    EXPECT_LE(request.url().size(), kMaxUrlBytes);
    EXPECT_LE(opened_.size(), kMaxWindows);
    EXPECT_GT(info.bounds().width(), 0);
    EXPECT_GT(info.bounds().height(), 0);
  }

  WindowList List(const ListWindowsRequest& request) {
    WindowList list;
    rpc::serving::CallContext context;
    torvane::CountingClosure done;
    service_->ListWindows(&context, &request, &list, &done);
    EXPECT_EQ(1, done.runs());
    EXPECT_EQ(absl::OkStatus(), context.status());
    int64_t last = request.after().value();
    size_t bytes = 0;
    for (const WindowInfo& window : list.windows()) {
      EXPECT_GT(window.browser_id().value(), last);
      last = window.browser_id().value();
      bytes += window.ByteSizeLong();
    }
    EXPECT_TRUE(bytes <= kMaxListBytes || list.windows_size() == 1);
    EXPECT_TRUE(!list.more() || list.windows_size() > 0);
    return list;
  }

  void ListAll() {
    std::set<int64_t> listed;
    ListWindowsRequest request;
    WindowList list;
    do {
      list = List(request);
      for (const WindowInfo& window : list.windows()) {
        EXPECT_TRUE(listed.insert(window.browser_id().value()).second);
        request.mutable_after()->set_value(window.browser_id().value());
      }
    } while (list.more());
    EXPECT_EQ(opened_, listed);
  }

  rpc::loop::ManualSequence sequence_;
  MemoryDesktop desktop_{sequence_, Display{}};
  const std::unique_ptr<WindowDirectoryRpc> service_ =
      MakeDirectoryService(desktop_, {.max_windows = kMaxWindows});
  std::set<int64_t> opened_;
};

}  // namespace
}  // namespace window_host

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  window_host::Directory directory;
  while (input.size() >= 2) {
    const auto what = static_cast<uint8_t>(input[0]);
    const size_t length = static_cast<uint8_t>(input[1]);
    input.remove_prefix(2);
    directory.Take(what, std::string(input.substr(0, length)));
    input.remove_prefix(std::min(length, input.size()));
  }
  return 0;
}
