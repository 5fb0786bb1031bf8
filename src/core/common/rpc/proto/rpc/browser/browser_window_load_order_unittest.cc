// The registries of the four stream types are built before the service code
// registers the descriptors of its file, and torn down in reverse.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_load_events.h"

// This source instantiates no stream type itself.
extern template class torvane::EventStream<rpc::BrowserWindowClosed>;
extern template class torvane::CallbackStream<rpc::CanExecuteCommand>;
extern template class torvane::CallbackStream<rpc::ShowContextMenu>;
extern template class torvane::CallbackStream<rpc::CloseWindow>;

namespace {

using ClosedStream = torvane::EventStream<rpc::BrowserWindowClosed>;
using CommandStream = torvane::CallbackStream<rpc::CanExecuteCommand>;
using MenuStream = torvane::CallbackStream<rpc::ShowContextMenu>;
using CloseStream = torvane::CallbackStream<rpc::CloseWindow>;

using testing::ElementsAre;

TEST(LoadOrder, BuildsTheRegistriesOnceAndThenRegistersTheDescriptors) {
  // Linked in, and with it its initialisers.
  ASSERT_NE(rpc::BrowserWindowRpc::descriptor(), nullptr);
  const std::vector<std::string> names = rpc::LoadEvents();
  for (const char* registry : {"closed", "command", "menu", "close"})
    EXPECT_EQ(std::count(names.begin(), names.end(), registry), 1) << registry;

  // The message code of the same file registers the same table at some other
  // time.
  const auto own = std::find(names.begin(), names.end(), "closed");
  ASSERT_GE(names.end() - own, 5);
  EXPECT_THAT(std::vector<std::string>(own, own + 5),
              ElementsAre("closed", "command", "menu", "close", "descriptors"));
}

TEST(LoadOrder, TheRegistriesStartEmpty) {
  EXPECT_TRUE(ClosedStream::stream_map_.empty());
  EXPECT_TRUE(CommandStream::stream_map_.empty());
  EXPECT_TRUE(MenuStream::stream_map_.empty());
  EXPECT_TRUE(CloseStream::stream_map_.empty());
}

TEST(ExitOrderDeathTest, TearsTheRegistriesDownInReverse) {
  EXPECT_EXIT(exit(0), testing::ExitedWithCode(0),
              testing::HasSubstr("close\nmenu\ncommand\nclosed\n"));
}

TEST(ExitOrderDeathTest, TouchesNeitherKeysNorStreamsThatAreLeft) {
  EXPECT_EXIT(
      {
        // Addresses that can't be read: the first to touch one dies of it.
        const auto* key =
            reinterpret_cast<const google::protobuf::Message*>(0x10);
        ClosedStream::stream_map_[key].insert(
            reinterpret_cast<ClosedStream*>(0x20));
        CloseStream::stream_map_[key] = reinterpret_cast<CloseStream*>(0x20);
        exit(0);
      },
      testing::ExitedWithCode(0),
      testing::HasSubstr("close\nmenu\ncommand\nclosed\n"));
}

}  // namespace
