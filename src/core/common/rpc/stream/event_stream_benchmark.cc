// Event streams in one process: what subscribing, publishing and completing
// cost without a transport.
//
// The endpoint copies each payload into an allocated buffer, the least that any
// transport must do. CopyPayload measures that copy alone.

#include "core/common/rpc/stream/event_stream.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "rpc/browser/browser_window.pb.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

using rpc::transport::StreamMessage;
using Stream = EventStream<rpc::BrowserWindowClosed>;

constexpr int64_t kFirstId = 1000;
constexpr int kEventMethod = 37;

using Buffer = std::array<char, 256>;

class CopyingEndpoint final : public StreamChannel::Endpoint {
 public:
  explicit CopyingEndpoint(Buffer* buffer) : buffer_(buffer) {}

  bool Send(const StreamMessage& frame) override {
    std::memcpy(buffer_->data(), frame.payload().data(),
                frame.payload().size());
    benchmark::ClobberMemory();
    return true;
  }
  void Complete() override {}

 private:
  Buffer* const buffer_;
};

BrowserId Window(int64_t number) {
  BrowserId id;
  id.set_value(kFirstId + number);
  return id;
}

rpc::BrowserWindowClosed Event() {
  rpc::BrowserWindowClosed event;
  *event.mutable_browser_id() = Window(0);
  event.set_reason(rpc::WINDOW_CLOSE_REASON_CALL);
  event.set_title("A page about nothing in particular");
  return event;
}

// Owns the streams as a transport does, each with a buffer of its own.
class Streams {
 public:
  explicit Streams(size_t count) : buffers_(count) {
    for (Buffer& buffer : buffers_)
      streams_.push_back(Open(&buffer));
  }
  ~Streams() {
    for (const auto& stream : streams_)
      stream->OnCompleted();
  }

  std::unique_ptr<Stream> Open(Buffer* buffer) {
    return std::make_unique<Stream>(
        &service_, service_.GetDescriptor()->method(kEventMethod),
        StreamChannel(std::make_unique<CopyingEndpoint>(buffer)));
  }

  Stream& operator[](size_t index) { return *streams_[index]; }
  std::vector<Buffer>& buffers() { return buffers_; }

 private:
  rpc::BrowserWindowRpc service_;
  std::vector<Buffer> buffers_;
  std::vector<std::unique_ptr<Stream>> streams_;
};

void Publish(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  Streams streams(count);
  const BrowserId window = Window(0);
  for (size_t i = 0; i < count; ++i)
    streams[i].Subscribe(window);
  const rpc::BrowserWindowClosed event = Event();
  for (auto _ : state) {
    if (Stream::Publish(window, event) != count)
      state.SkipWithError("a stream was not written to");
  }
  // The addresses of streams that complete on a shared key stay in its set.
  for (size_t i = 0; i < count; ++i)
    streams[i].Unsubscribe(window);
}

void CopyPayload(benchmark::State& state) {
  const auto count = static_cast<size_t>(state.range(0));
  std::vector<Buffer> buffers(count);
  const std::string payload = Event().SerializeAsString();
  for (auto _ : state) {
    for (Buffer& buffer : buffers) {
      std::memcpy(buffer.data(), payload.data(), payload.size());
      benchmark::ClobberMemory();
    }
  }
}

// The argument is the number of windows that others have subscribed to.
void SubscribeAndUnsubscribe(benchmark::State& state) {
  Streams streams(2);
  for (int i = 0; i < state.range(0); ++i)
    streams[0].Subscribe(Window(i));
  const BrowserId window = Window(state.range(0));
  for (auto _ : state) {
    streams[1].Subscribe(window);
    streams[1].Unsubscribe(window);
  }
}

// OnCompleted() looks at every key of the registry.
void OpenSubscribeComplete(benchmark::State& state) {
  Streams streams(1);
  for (int i = 0; i < state.range(0); ++i)
    streams[0].Subscribe(Window(i));
  const BrowserId window = Window(state.range(0));
  Buffer buffer;
  for (auto _ : state) {
    const std::unique_ptr<Stream> stream = streams.Open(&buffer);
    stream->Subscribe(window);
    stream->OnCompleted();
  }
}

BENCHMARK(Publish)->Arg(1)->Arg(100)->Arg(1'000);
BENCHMARK(CopyPayload)->Arg(1)->Arg(100)->Arg(1'000);
BENCHMARK(SubscribeAndUnsubscribe)->Arg(10)->Arg(1'000)->Arg(100'000);
BENCHMARK(OpenSubscribeComplete)->Arg(0)->Arg(100)->Arg(10'000);

}  // namespace
}  // namespace torvane
