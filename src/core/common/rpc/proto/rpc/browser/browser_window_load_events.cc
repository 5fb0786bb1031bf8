#include "rpc/browser/browser_window_load_events.h"

#include <dlfcn.h>
#include <google/protobuf/generated_message_reflection.h>

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

namespace rpc {

std::vector<std::string> LoadEvents() {
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

}  // namespace rpc
