// When streams delete the keys that their registries and tables own, and in
// which order. Seen from the deletions themselves, since the keys are gone
// afterwards.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "core/common/rpc/stream/callback_stream_test_support.h"
#include "core/common/rpc/stream/event_stream_test_support.h"
#include "core/common/rpc/testing/deletion_watch.h"

namespace torvane {
namespace {

using testing::ElementsAreArray;

using Keys = std::vector<const void*>;

// Windows in an order in which neither ascending ids nor descending ones are
// keys at ascending addresses, however the allocator places them.
constexpr int64_t kWindows[] = {5, 2, 8, 1, 9, 4, 7, 3, 6, 10, 12, 11};

// The keys of a registry or a table, in its own order.
template <typename Map>
Keys KeysOf(const Map& map) {
  Keys keys;
  for (const auto& entry : map)
    keys.push_back(entry.first);
  return keys;
}

template <typename Map>
bool Contains(const Map& map, const void* key) {
  const Keys keys = KeysOf(map);
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

// Completes a stream that all keys of `registry` belong to.
template <typename Stream>
void ExpectDeletionByAddress(Stream& stream,
                             const typename Stream::StreamMap& registry) {
  const Keys in_registry_order = KeysOf(registry);
  Keys by_address = in_registry_order;
  std::sort(by_address.begin(), by_address.end());
  ASSERT_NE(in_registry_order, by_address);

  const DeletionWatch watch({by_address.begin(), by_address.end()});
  stream.OnCompleted();
  EXPECT_THAT(watch.deleted(), ElementsAreArray(by_address));
}

class EventKeyTest : public EventStreamTest {};
class CallbackKeyTest : public CallbackStreamTest {};

TEST_F(EventKeyTest, CompletionUnsubscribesByAscendingAddressesOfTheKeys) {
  const auto stream = Open();
  for (const int64_t window : kWindows)
    stream->Subscribe(WindowId(window));
  ExpectDeletionByAddress(*stream, Stream::stream_map_);
}

TEST_F(CallbackKeyTest, CompletionUnsubscribesByAscendingAddressesOfTheKeys) {
  const auto stream = Open();
  for (const int64_t window : kWindows)
    stream->Subscribe(WindowId(window));
  ExpectDeletionByAddress(*stream, Stream::stream_map_);
}

// Watches the first key of `map` while `end` removes its entry.
template <typename Map, typename End>
void ExpectDeletionAfterRemoval(const Map& map, const End& end) {
  ASSERT_FALSE(map.empty());
  const void* const key = map.begin()->first;
  bool was_in_map = false;
  const DeletionWatch watch(
      {key}, [&](const void* gone) { was_in_map = Contains(map, gone); });
  end();
  EXPECT_EQ(watch.deleted(), Keys{key});
  EXPECT_FALSE(was_in_map);
}

TEST_F(EventKeyTest, AnEntryLeavesTheRegistryBeforeItsKeyIsDeleted) {
  const auto stream = Open();
  stream->Subscribe(WindowId(7));
  ExpectDeletionAfterRemoval(Stream::stream_map_,
                             [&] { stream->Unsubscribe(WindowId(7)); });
}

TEST_F(EventKeyTest, TheEntryOfAnUnknownKeyIsGoneBeforeThatKeyIsDeleted) {
  const auto stream = Open();
  auto* const key = new BrowserId(WindowId(7));
  size_t entries = 99;
  const DeletionWatch watch({key}, [&](const void*) { entries = Entries(); });
  stream->Unsubscribe(*key);
  EXPECT_EQ(watch.deleted(), Keys{key});
  EXPECT_EQ(entries, 0u);
}

TEST_F(CallbackKeyTest, AnEntryLeavesTheRegistryBeforeItsKeyIsDeleted) {
  const auto stream = Open();
  stream->Subscribe(WindowId(7));
  ExpectDeletionAfterRemoval(Stream::stream_map_,
                             [&] { stream->Unsubscribe(WindowId(7)); });
}

TEST_F(CallbackKeyTest, AnEntryLeavesTheTableOfCallsBeforeItsKeyIsDeleted) {
  const auto stream = Open();
  const auto& table = CallbackStreamTestPeer::PendingCalls(*stream);
  Pend(*stream, 7, 1);
  ExpectDeletionAfterRemoval(table, [&] { Answer(*stream, 7, 1); });
  Pend(*stream, 7, 2);
  ExpectDeletionAfterRemoval(table, [&] { Fail(*stream, 7, 2); });
  Pend(*stream, 7, 3);
  ExpectDeletionAfterRemoval(
      table, [&] { stream->CancelPendingRequests(WindowId(7)); });
}

}  // namespace
}  // namespace torvane
