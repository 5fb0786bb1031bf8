// A program that uses a stream type in a source of its own instantiates it
// there as well, and whichever initialiser runs first builds the registry. Then
// the order in which the program is linked decides about that registry; the
// others keep theirs, and each is built once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_load_events.h"

namespace {

using testing::ElementsAre;

TEST(LoadOrder, ASourceThatIsLinkedBeforeTheServiceBuildsItsRegistryFirst) {
  EXPECT_TRUE(torvane::CallbackStream<rpc::CloseWindow>::stream_map_.empty());
  // The message code of the file registers its descriptors, too, before that.
  const std::vector<std::string> events = rpc::LoadEvents();
  const auto first = std::find(events.begin(), events.end(), "close");
  EXPECT_THAT(std::vector<std::string>(first, events.end()),
              ElementsAre("close", "closed", "command", "menu", "descriptors"));
}

TEST(ExitOrderDeathTest, TearsTheRegistriesDownInReverse) {
  EXPECT_EXIT(exit(0), testing::ExitedWithCode(0),
              testing::HasSubstr("menu\ncommand\nclosed\nclose\n"));
}

}  // namespace
