// Two shared libraries that both instantiate one stream type share its
// registry, which is built once. This program instantiates no stream type.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>

#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/service.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/window_id.h"
#include "streams_only.pb.h"

namespace {

constexpr int kMaxDestructions = 4096;
const void* set_up_for_destruction[kMaxDestructions];
int destructions = 0;

int CountDestructions(const void* object) {
  int count = 0;
  for (int i = 0; i < destructions; ++i)
    count += set_up_for_destruction[i] == object;
  return count;
}

}  // namespace

extern "C" int __cxa_atexit(void (*destroy)(void*), void* object, void* dso) {
  using Register = int(void (*)(void*), void*, void*);
  static auto* const next =
      reinterpret_cast<Register*>(dlsym(RTLD_NEXT, "__cxa_atexit"));
  if (destructions < kMaxDestructions)
    set_up_for_destruction[destructions++] = object;
  return next(destroy, object, dso);
}

namespace {

class Module {
 public:
  explicit Module(const char* path)
      : handle_(dlopen(path, RTLD_NOW | RTLD_GLOBAL)) {
    EXPECT_NE(handle_, nullptr) << dlerror();
  }

  template <typename Function>
  Function* Get(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle_, name));
  }

  void* registry() const { return Get<void*()>("RegistryOfModule")(); }
  size_t bindings() const { return Get<size_t()>("BindingsInModule")(); }

 private:
  void* const handle_;
};

TEST(SharedRegistry, IsOneInTwoLibrariesThatInstantiateTheSameStreamType) {
  const Module first(FIRST_MODULE);
  const Module second(SECOND_MODULE);
  ASSERT_NE(first.Get<void>("OpenInModule"), second.Get<void>("OpenInModule"));
  EXPECT_EQ(first.registry(), second.registry());
  EXPECT_EQ(CountDestructions(first.registry()), 1);
}

TEST(SharedRegistry, IsSeenByEitherLibraryWhicheverSubscribed) {
  const Module first(FIRST_MODULE);
  const Module second(SECOND_MODULE);
  using Open =
      torvane::AbstractStream*(torvane::Service*, torvane::StreamChannel*);
  using Subscribe = void(torvane::AbstractStream*, const BrowserId*);

  torvane::StreamChannel channel = torvane::MakeChannel();
  const std::unique_ptr<torvane::AbstractStream> stream(
      first.Get<Open>("OpenInModule")(nullptr, &channel));
  const BrowserId window = torvane::WindowId(7);
  first.Get<Subscribe>("SubscribeInModule")(stream.get(), &window);
  EXPECT_EQ(second.bindings(), 1u);
  stream->OnCompleted();
  EXPECT_EQ(second.bindings(), 0u);
}

}  // namespace
