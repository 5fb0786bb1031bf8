#include "examples/window_host/service/directory_service.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "examples/window_host/service/host_test_support.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using rpc::directory::ListWindowsRequest;
using rpc::directory::OpenWindowRequest;
using rpc::directory::WindowDirectoryRpc;
using rpc::directory::WindowInfo;
using rpc::directory::WindowList;
using rpc::directory::WindowOpened;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// The index of the method in rpc.directory.WindowDirectory.
constexpr int kWhenWindowOpened = 2;

// The empty BrowserId.
constexpr int64_t kAllWindows = 0;

constexpr size_t kMaxWindows = 3;

// A call to open a window.
struct OpenCall {
  OpenCall(WindowDirectoryRpc& directory, OpenWindowRequest the_request)
      : request(std::move(the_request)) {
    directory.OpenWindow(&context, &request, &info, &done);
  }

  const OpenWindowRequest request;
  WindowInfo info;
  rpc::serving::CallContext context;
  torvane::CountingClosure done;
};

OpenWindowRequest WithUrl(const std::string& url) {
  OpenWindowRequest request;
  request.set_url(url);
  return request;
}

class DirectoryServiceTest : public ::testing::Test {
 protected:
  WindowList List(int64_t after = 0) {
    ListWindowsRequest request;
    request.mutable_after()->set_value(after);
    WindowList list;
    rpc::serving::CallContext context;
    torvane::CountingClosure done;
    directory_->ListWindows(&context, &request, &list, &done);
    EXPECT_EQ(absl::OkStatus(), context.status());
    EXPECT_EQ(1, done.runs());
    return list;
  }

  static std::vector<int64_t> IdsOf(const WindowList& list) {
    std::vector<int64_t> ids;
    for (const WindowInfo& window : list.windows())
      ids.push_back(window.browser_id().value());
    return ids;
  }

  // With which status a window with this URL is opened.
  absl::Status Open(const std::string& url) {
    const OpenCall call(*directory_, WithUrl(url));
    host_.sequence.Run();
    EXPECT_EQ(1, call.done.runs());
    return call.context.status();
  }

  void SetTitle(int64_t id, const std::string& title) {
    rpc::WindowTitle change;
    change.set_title(title);
    host_.Change(id, change);
  }

  TestHost host_;
  const std::unique_ptr<WindowDirectoryRpc> directory_ =
      MakeDirectoryService(host_.windows, {.max_windows = kMaxWindows});
};

TEST_F(DirectoryServiceTest, WithoutWindowsTheListIsEmpty) {
  EXPECT_THAT(List().windows(), IsEmpty());
  EXPECT_FALSE(List().more());
}

TEST_F(DirectoryServiceTest, WindowsAreListedInTheOrderInWhichTheyWereOpened) {
  for (int i = 0; i < 3; ++i)
    host_.windows.Open();
  host_.Change(1, WindowAction::kActivate);
  EXPECT_THAT(IdsOf(List()), ElementsAre(1, 2, 3));
  EXPECT_FALSE(List().more());
  host_.Change(2, Close{});
  EXPECT_THAT(IdsOf(List()), ElementsAre(1, 3));
}

TEST_F(DirectoryServiceTest, ListSaysWhatEachWindowIsLike) {
  host_.windows.Open();
  host_.windows.Open();
  host_.Change(1, WindowAction::kMaximize);
  SetTitle(1, "Inbox");
  const WindowList list = List();
  EXPECT_EQ(
      "browser_id { value: 1 } title: \"Inbox\" state: STATE_MAXIMIZED "
      "visible: true bounds { y: 32 width: 1920 height: 1000 }",
      list.windows(0).ShortDebugString());
  EXPECT_EQ(
      "browser_id { value: 2 } title: \"Window 2\" state: STATE_NORMAL "
      "visible: true active: true "
      "bounds { x: 32 y: 64 width: 1024 height: 700 }",
      list.windows(1).ShortDebugString());
}

TEST_F(DirectoryServiceTest, EachStateIsSaid) {
  host_.windows.Open();
  const auto state = [this] { return List().windows(0).state(); };
  EXPECT_EQ(WindowInfo::STATE_NORMAL, state());
  host_.Change(1, WindowAction::kMaximize);
  EXPECT_EQ(WindowInfo::STATE_MAXIMIZED, state());
  host_.Change(1, WindowAction::kEnterFullScreen);
  EXPECT_EQ(WindowInfo::STATE_FULL_SCREEN, state());
  host_.Change(1, WindowAction::kMinimize);
  EXPECT_EQ(WindowInfo::STATE_MINIMIZED, state());
  EXPECT_FALSE(List().windows(0).visible());
}

TEST_F(DirectoryServiceTest, OnlyWindowsAfterTheOneThatIsNamedAreListed) {
  for (int i = 0; i < 3; ++i)
    host_.windows.Open();
  EXPECT_THAT(IdsOf(List(1)), ElementsAre(2, 3));
  EXPECT_THAT(IdsOf(List(3)), IsEmpty());
  host_.Change(2, Close{});
  EXPECT_THAT(IdsOf(List(2)), ElementsAre(3));
  EXPECT_THAT(IdsOf(List(-1)), ElementsAre(1, 3));
}

TEST_F(DirectoryServiceTest, ManyWindowsAreListedInPartsEachOnce) {
  constexpr int kWindows = 500;
  for (int i = 0; i < kWindows; ++i)
    host_.windows.Open();
  std::vector<int64_t> ids;
  WindowList list;
  int parts = 0;
  do {
    list = List(ids.empty() ? 0 : ids.back());
    EXPECT_LE(list.ByteSizeLong(), kMaxListBytes + 4 * list.windows_size());
    for (int64_t id : IdsOf(list))
      ids.push_back(id);
    ++parts;
  } while (list.more());
  EXPECT_THAT(ids, SizeIs(kWindows));
  EXPECT_EQ(kWindows, ids.back());
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_LE(5, parts);
  EXPECT_GT(10, parts);
}

TEST_F(DirectoryServiceTest, WindowsWithTheLongestTitlesComeOneByOne) {
  host_.windows.Open();
  host_.windows.Open();
  SetTitle(1, std::string(kMaxTitleBytes, 'x'));
  SetTitle(2, std::string(kMaxTitleBytes, 'y'));
  const WindowList first = List();
  EXPECT_THAT(IdsOf(first), ElementsAre(1));
  EXPECT_TRUE(first.more());
  // A client may choose frames of 8 KiB.
  EXPECT_GT(4'400u, first.ByteSizeLong());
  EXPECT_THAT(IdsOf(List(1)), ElementsAre(2));
  EXPECT_FALSE(List(1).more());
}

TEST_F(DirectoryServiceTest, WindowIsOpenedWithItsUrlAndBounds) {
  OpenWindowRequest request = WithUrl("https://example.org/?q=\u00e4#top");
  request.set_x(-7);
  request.set_y(50);
  request.set_width(800);
  request.set_height(600);
  const OpenCall call(*directory_, request);
  EXPECT_EQ(0, call.done.runs());
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(
      "browser_id { value: 1 } title: "
      "\"https://example.org/?q=\\303\\244#top\" "
      "state: STATE_NORMAL visible: true active: true "
      "bounds { x: -7 y: 50 width: 800 height: 600 }",
      call.info.ShortDebugString());
  EXPECT_TRUE(host_.IsOpen(1));
}

TEST_F(DirectoryServiceTest, WhatIsNotNamedIsTheDesktopsChoice) {
  EXPECT_EQ(absl::OkStatus(), Open(""));
  OpenWindowRequest request;
  request.set_x(0);
  const OpenCall call(*directory_, request);
  host_.sequence.Run();
  EXPECT_EQ("Window 1", List().windows(0).title());
  EXPECT_EQ(0, call.info.bounds().x());
  EXPECT_EQ(64, call.info.bounds().y());
  EXPECT_EQ(1024, call.info.bounds().width());
}

TEST_F(DirectoryServiceTest, ANegativeSizeIsRefusedByTheDesktop) {
  OpenWindowRequest request;
  request.set_height(-1);
  const OpenCall call(*directory_, request);
  host_.sequence.Run();
  EXPECT_EQ(
      absl::InvalidArgumentError("The height is -1: it must not be negative."),
      call.context.status());
  EXPECT_EQ(1, call.done.runs());
}

TEST_F(DirectoryServiceTest, UrlMayHaveTheGreatestLengthAndNoByteMore) {
  const std::string longest = "a:" + std::string(kMaxUrlBytes - 2, 'x');
  EXPECT_EQ(absl::OkStatus(), Open(longest));
  EXPECT_EQ(absl::InvalidArgumentError(
                "The URL has 2049 bytes; a window takes at most 2048."),
            Open(longest + "x"));
}

TEST_F(DirectoryServiceTest, UrlHasNoSpacesAndNoControlCharacters) {
  const struct {
    const char* url;
    int byte;
  } cases[] = {{"http://a b", 8},
               {" http://a", 0},
               {"http://a\n", 8},
               {"a:\x1b[2J", 2},
               {"a:\x7f", 2}};
  for (const auto& [url, byte] : cases) {
    EXPECT_EQ(
        absl::InvalidArgumentError(absl::StrCat(
            "The URL has a space or control character at byte ", byte, ".")),
        Open(url));
  }
}

TEST_F(DirectoryServiceTest, UrlHasAScheme) {
  for (const char* url : {"about:blank", "x-own+2.0:", "file:///etc/motd"})
    EXPECT_EQ(absl::OkStatus(), Open(url)) << url;
  for (const char* url : {"example.org", "/index.html", "//example.org", ":80",
                          "1a:b", "a/b:c", "-a:b", "\u00e4:b"}) {
    EXPECT_EQ(absl::InvalidArgumentError(
                  "The URL is not absolute: it needs a scheme, as in "
                  "https://example.org/."),
              Open(url))
        << url;
  }
}

TEST_F(DirectoryServiceTest, ClientsOpenNoMoreWindowsThanTheLimit) {
  host_.windows.Open();
  EXPECT_EQ(absl::OkStatus(), Open(""));
  EXPECT_EQ(absl::OkStatus(), Open(""));
  EXPECT_EQ(absl::ResourceExhaustedError("max_windows, 3, are open"), Open(""));
  // The user may.
  host_.windows.Open();
  EXPECT_EQ(absl::ResourceExhaustedError("max_windows, 3, are open"), Open(""));
  host_.Change(1, Close{});
  host_.Change(2, Close{});
  EXPECT_EQ(absl::OkStatus(), Open(""));
}

TEST_F(DirectoryServiceTest, WindowsThatAreAboutToOpenCountAgainstTheLimit) {
  host_.windows.Open();
  host_.windows.Hold();
  const OpenCall first(*directory_, {});
  const OpenCall second(*directory_, {});
  const OpenCall third(*directory_, {});
  EXPECT_EQ(absl::ResourceExhaustedError("max_windows, 3, are open"),
            third.context.status());
  EXPECT_EQ(1, third.done.runs());
  EXPECT_EQ(0, first.done.runs());
  // What the desktop refuses has its place no more.
  host_.windows.Refuse(absl::UnavailableError("The window manager has gone."));
  host_.sequence.Run();
  EXPECT_EQ(absl::UnavailableError("The window manager has gone."),
            first.context.status());
  const OpenCall fourth(*directory_, {});
  host_.windows.Confirm();
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_EQ(absl::OkStatus(), second.context.status());
  EXPECT_EQ(absl::OkStatus(), fourth.context.status());
  EXPECT_EQ(3, fourth.info.browser_id().value());
}

TEST_F(DirectoryServiceTest, AWindowOpensThoughItsCallIsGivenUp) {
  host_.windows.Hold();
  OpenCall call(*directory_, {});
  call.context.Cancel();
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_TRUE(host_.IsOpen(1));
  EXPECT_EQ(1, call.done.runs());
}

TEST_F(DirectoryServiceTest, AWindowThatIsGoneBeforeTheReplyIsNotFound) {
  const OpenCall call(*directory_, {});
  host_.windows.Lose(1);
  host_.sequence.Run();
  EXPECT_EQ(absl::NotFoundError("No window 1."), call.context.status());
}

TEST_F(DirectoryServiceTest, WhoWatchesAllWindowsHearsOfEachThatOpens) {
  TestStream<WindowOpened> watcher(*directory_, kWhenWindowOpened);
  TestStream<WindowOpened> other(*directory_, kWhenWindowOpened);
  watcher.Watch(kAllWindows);
  other.Watch(1);
  host_.windows.Open();
  host_.sequence.Run();
  EXPECT_EQ(absl::OkStatus(), Open("about:blank"));
  const auto events = watcher.Received();
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ("Window 1", events[0].window().title());
  EXPECT_EQ(List().windows(1).ShortDebugString(),
            events[1].window().ShortDebugString());
  // A window's own id is no key here.
  EXPECT_THAT(other.Received(), IsEmpty());
}

TEST_F(DirectoryServiceTest, TheEventIsSentBeforeTheReply) {
  TestStream<WindowOpened> watcher(*directory_, kWhenWindowOpened);
  watcher.Watch(kAllWindows);
  const OpenCall call(*directory_, {});
  while (watcher.Received().empty()) {
    EXPECT_EQ(0, call.done.runs());
    ASSERT_TRUE(host_.sequence.RunOne());
  }
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
}

TEST_F(DirectoryServiceTest, WhoWatchesAllWindowsHearsOfEachThatCloses) {
  host_.windows.Open();
  host_.windows.Open();
  TestStream<rpc::BrowserWindowClosed> all(*host_.service,
                                           kWhenBrowserWindowClosed);
  TestStream<rpc::BrowserWindowClosed> both(*host_.service,
                                            kWhenBrowserWindowClosed);
  all.Watch(kAllWindows);
  both.Watch(kAllWindows);
  both.Watch(2);
  host_.Change(1, Close{rpc::WINDOW_CLOSE_REASON_USER});
  host_.Change(2, Close{rpc::WINDOW_CLOSE_REASON_CALL});
  const auto events = all.Received();
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(1, events[0].browser_id().value());
  EXPECT_EQ("Window 1", events[0].title());
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_USER, events[0].reason());
  EXPECT_EQ(2, events[1].browser_id().value());
  EXPECT_THAT(both.Received(), SizeIs(3));
}

}  // namespace
}  // namespace window_host
