// What happens before main() and after exit(): the registries of the four
// stream types are built before the service code registers the descriptors of
// its file, and torn down in reverse. Observed by standing in for the two
// functions that load-time initialisers call, so this program instantiates no
// stream type itself.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <google/protobuf/generated_message_reflection.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "rpc/browser/browser_window.rpc.h"

extern template class torvane::EventStream<rpc::BrowserWindowClosed>;
extern template class torvane::CallbackStream<rpc::CanExecuteCommand>;
extern template class torvane::CallbackStream<rpc::ShowContextMenu>;
extern template class torvane::CallbackStream<rpc::CloseWindow>;

namespace {

using ClosedStream = torvane::EventStream<rpc::BrowserWindowClosed>;
using CommandStream = torvane::CallbackStream<rpc::CanExecuteCommand>;
using MenuStream = torvane::CallbackStream<rpc::ShowContextMenu>;
using CloseStream = torvane::CallbackStream<rpc::CloseWindow>;

// The objects that load-time initialisers were about, in order: a registry that
// was set up for destruction, or a descriptor table that was registered.
// Constant-initialised, since the initialisers run before this source's own.
constexpr int kMaxEvents = 256;
const void* events[kMaxEvents];
int event_count = 0;

void Record(const void* object) {
  if (event_count < kMaxEvents)
    events[event_count++] = object;
}

const char* RegistryName(const void* object) {
  if (object == &ClosedStream::stream_map_)
    return "closed";
  if (object == &CommandStream::stream_map_)
    return "command";
  if (object == &MenuStream::stream_map_)
    return "menu";
  if (object == &CloseStream::stream_map_)
    return "close";
  return nullptr;
}

struct Destruction {
  void (*destroy)(void*);
  void* object;
};

// Runs in the place of a registry's destructor.
void DestroyAloud(void* destruction) {
  const auto* registry = static_cast<Destruction*>(destruction);
  fprintf(stderr, "%s\n", RegistryName(registry->object));
  registry->destroy(registry->object);
}

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::vector<std::string> Events() {
  std::vector<std::string> names;
  for (int i = 0; i < event_count; ++i) {
    if (const char* name = RegistryName(events[i]))
      names.push_back(name);
    else if (events[i] ==
             &descriptor_table_rpc_2fbrowser_2fbrowser_5fwindow_2eproto)
      names.push_back("descriptors");
  }
  return names;
}

}  // namespace

extern "C" int __cxa_atexit(void (*destroy)(void*), void* object, void* dso) {
  static auto* const next =
      Next<int(void (*)(void*), void*, void*)>("__cxa_atexit");
  if (!RegistryName(object))
    return next(destroy, object, dso);
  Record(object);
  // Lives as long as the process.
  static Destruction destructions[4];
  static int used = 0;
  if (used == 4)
    abort();
  destructions[used] = {destroy, object};
  return next(&DestroyAloud, &destructions[used++], dso);
}

namespace google::protobuf::internal {

AddDescriptorsRunner::AddDescriptorsRunner(const DescriptorTable* table) {
  Record(table);
  Next<void(AddDescriptorsRunner*, const DescriptorTable*)>(
      "_ZN6google8protobuf8internal20AddDescriptorsRunnerC1EPKNS1_"
      "15DescriptorTableE")(this, table);
}

}  // namespace google::protobuf::internal

namespace {

using testing::ElementsAre;

TEST(LoadOrder, BuildsTheRegistriesOnceAndThenRegistersTheDescriptors) {
  // Linked in, and with it its initialisers.
  ASSERT_NE(rpc::BrowserWindowRpc::descriptor(), nullptr);
  const std::vector<std::string> names = Events();
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
