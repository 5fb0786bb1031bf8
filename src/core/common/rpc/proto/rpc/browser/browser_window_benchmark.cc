// Compares dispatch and prototypes with a plain virtual call and with the
// generic service that Protocol Buffers itself generates from the same file.
//
// "Fixed" uses one method over and over; "Random" all unary methods (for
// prototypes, all methods) in an order that the branch predictor cannot learn.

#include <benchmark/benchmark.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/service.h>

#include <cstddef>
#include <random>
#include <utility>
#include <vector>

#include "rpc/browser/browser_window.pb.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc {
namespace {

using google::protobuf::BoolValue;
using google::protobuf::Closure;
using google::protobuf::Empty;
using google::protobuf::MethodDescriptor;
using google::protobuf::RpcController;
using google::protobuf::Service;
using google::protobuf::StringValue;

constexpr int kUnaryMethods = 37;
constexpr int kMethods = 41;
constexpr int kFixedMethod = 1;

// Overrides every unary method with one that records that it was called. The
// bodies differ, so that the linker cannot merge them.
template <typename Base>
class Ignoring final : public Base {
 public:
#define IGNORE_CALLS_OF(Method, Request, Response)                         \
  void Method(RpcController*, const Request* request, Response*, Closure*) \
      override {                                                           \
    last_ = #Method;                                                       \
    benchmark::DoNotOptimize(request);                                     \
  }
  IGNORE_CALLS_OF(Show, BrowserId, Empty)
  IGNORE_CALLS_OF(IsVisible, BrowserId, BoolValue)
  IGNORE_CALLS_OF(Hide, BrowserId, Empty)
  IGNORE_CALLS_OF(Activate, BrowserId, Empty)
  IGNORE_CALLS_OF(IsActive, BrowserId, BoolValue)
  IGNORE_CALLS_OF(Deactivate, BrowserId, Empty)
  IGNORE_CALLS_OF(Focus, BrowserId, Empty)
  IGNORE_CALLS_OF(Maximize, BrowserId, Empty)
  IGNORE_CALLS_OF(IsMaximized, BrowserId, BoolValue)
  IGNORE_CALLS_OF(Minimize, BrowserId, Empty)
  IGNORE_CALLS_OF(IsMinimized, BrowserId, BoolValue)
  IGNORE_CALLS_OF(Restore, BrowserId, Empty)
  IGNORE_CALLS_OF(EnterFullScreen, BrowserId, Empty)
  IGNORE_CALLS_OF(ExitFullScreen, BrowserId, Empty)
  IGNORE_CALLS_OF(IsFullScreen, BrowserId, BoolValue)
  IGNORE_CALLS_OF(Close, BrowserId, BoolValue)
  IGNORE_CALLS_OF(SetPosition, WindowPosition, Empty)
  IGNORE_CALLS_OF(SetSize, WindowSize, Empty)
  IGNORE_CALLS_OF(SetBounds, WindowBounds, Empty)
  IGNORE_CALLS_OF(GetBounds, BrowserId, Rect)
  IGNORE_CALLS_OF(CenterWindow, BrowserId, Empty)
  IGNORE_CALLS_OF(SetTitle, WindowTitle, Empty)
  IGNORE_CALLS_OF(GetTitle, BrowserId, StringValue)
  IGNORE_CALLS_OF(SetWindowTitleVisible, WindowTitleVisibility, Empty)
  IGNORE_CALLS_OF(IsWindowTitleVisible, BrowserId, BoolValue)
  IGNORE_CALLS_OF(SetWindowTitlebarVisible, WindowTitlebarVisibility, Empty)
  IGNORE_CALLS_OF(IsWindowTitlebarVisible, BrowserId, BoolValue)
  IGNORE_CALLS_OF(SetWindowButtonVisible, WindowButtonVisibility, Empty)
  IGNORE_CALLS_OF(IsWindowButtonVisible, WindowButton, BoolValue)
  IGNORE_CALLS_OF(SetWindowStyleFlags, WindowStyleFlags, Empty)
  IGNORE_CALLS_OF(GetWindowStyleFlags, BrowserId, WindowStyleFlags)
  IGNORE_CALLS_OF(SetWindowDisplayPolicy, BrowserWindowDisplayPolicy, Empty)
  IGNORE_CALLS_OF(GetWindowDisplayPolicy, BrowserId, BrowserWindowDisplayPolicy)
  IGNORE_CALLS_OF(SetWindowAnimationBehavior, WindowAnimationBehavior, Empty)
  IGNORE_CALLS_OF(SetActivationIndependenceEnabled,
                  ActivationIndependence,
                  Empty)
  IGNORE_CALLS_OF(IsActivationIndependenceEnabled, BrowserId, BoolValue)
  IGNORE_CALLS_OF(SetVibrancy, BrowserVibrancy, Empty)
#undef IGNORE_CALLS_OF

 private:
  const char* last_ = nullptr;
};

using Ours = Ignoring<BrowserWindowRpc>;
using Protobufs = Ignoring<BrowserWindow>;

const MethodDescriptor* Method(int index) {
  return BrowserWindowRpc::descriptor()->method(index);
}

// Long enough for the branch predictor to forget.
std::vector<const MethodDescriptor*> RandomMethods(int below) {
  std::mt19937 random(1);
  std::vector<const MethodDescriptor*> methods(1 << 16);
  for (const MethodDescriptor*& method : methods)
    method = Method(static_cast<int>(random() % below));
  return methods;
}

// Returns the methods in turn.
class Cycle {
 public:
  explicit Cycle(std::vector<const MethodDescriptor*> methods)
      : methods_(std::move(methods)) {}

  const MethodDescriptor* Next() {
    next_ = (next_ + 1) % (1 << 16);
    return methods_[next_];
  }

 private:
  const std::vector<const MethodDescriptor*> methods_;
  size_t next_ = 0;
};

void DirectVirtualCall(benchmark::State& state) {
  Ours ours;
  BrowserWindowRpc* service = &ours;
  BrowserId request;
  BoolValue response;
  for (auto _ : state) {
    benchmark::DoNotOptimize(service);
    service->IsVisible(nullptr, &request, &response, nullptr);
  }
}

template <typename ServiceType>
void DispatchFixed(benchmark::State& state) {
  ServiceType concrete;
  Service* service = &concrete;
  const MethodDescriptor* method = Method(kFixedMethod);
  BrowserId request;
  BoolValue response;
  for (auto _ : state) {
    benchmark::DoNotOptimize(service);
    benchmark::DoNotOptimize(method);
    service->CallMethod(method, nullptr, &request, &response, nullptr);
  }
}

// Most methods get messages of the wrong type, which they do not use.
template <typename ServiceType>
void DispatchRandom(benchmark::State& state) {
  ServiceType concrete;
  Service* service = &concrete;
  Cycle methods(RandomMethods(kUnaryMethods));
  BrowserId request;
  BoolValue response;
  for (auto _ : state) {
    benchmark::DoNotOptimize(service);
    service->CallMethod(methods.Next(), nullptr, &request, &response, nullptr);
  }
}

template <typename ServiceType>
void PrototypesRandom(benchmark::State& state) {
  ServiceType concrete;
  const Service* service = &concrete;
  Cycle methods(RandomMethods(kMethods));
  for (auto _ : state) {
    benchmark::DoNotOptimize(service);
    const MethodDescriptor* method = methods.Next();
    benchmark::DoNotOptimize(&service->GetRequestPrototype(method));
    benchmark::DoNotOptimize(&service->GetResponsePrototype(method));
  }
}

BENCHMARK(DirectVirtualCall);
BENCHMARK(DispatchFixed<Ours>);
BENCHMARK(DispatchFixed<Protobufs>);
BENCHMARK(DispatchRandom<Ours>);
BENCHMARK(DispatchRandom<Protobufs>);
BENCHMARK(PrototypesRandom<Ours>);
BENCHMARK(PrototypesRandom<Protobufs>);

}  // namespace
}  // namespace rpc
