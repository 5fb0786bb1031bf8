#include "core/common/rpc/grpc/testing/test_client.h"

#include <grpcpp/create_channel.h>
#include <grpcpp/support/byte_buffer.h>
#include <grpcpp/support/channel_arguments.h>
#include <grpcpp/support/client_callback.h>

#include <limits>
#include <utility>

namespace rpc::grpc {
namespace {

absl::Status FromGrpc(const ::grpc::Status& status) {
  return absl::Status(static_cast<absl::StatusCode>(status.error_code()),
                      status.error_message());
}

::grpc::ByteBuffer ToBuffer(const std::string& bytes) {
  const ::grpc::Slice slice(bytes);
  return ::grpc::ByteBuffer(&slice, 1);
}

std::string ToString(const ::grpc::ByteBuffer& buffer) {
  ::grpc::Slice slice;
  return buffer.TrySingleSlice(&slice).ok() ||
                 buffer.DumpToSingleSlice(&slice).ok()
             ? std::string(reinterpret_cast<const char*>(slice.begin()),
                           slice.size())
             : "";
}

std::shared_ptr<::grpc::Channel> NewChannel(const std::string& address,
                                            const TestClientOptions& options) {
  ::grpc::ChannelArguments arguments;
  // Each client has a connection of its own, also to the same server.
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  arguments.SetMaxReceiveMessageSize(std::numeric_limits<int>::max());
  return ::grpc::CreateCustomChannel(address, options.credentials, arguments);
}

}  // namespace

class TestClient::UnderWay {
 public:
  void Add() {
    const std::lock_guard lock(mutex_);
    ++count_;
  }
  void Remove() {
    const std::lock_guard lock(mutex_);
    --count_;
    changed_.notify_all();
  }
  void AwaitNone() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return count_ == 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

template <typename T>
class TestClient::Held {
 public:
  Held(std::shared_ptr<T> object, std::shared_ptr<UnderWay> under_way)
      : object_(std::move(object)), under_way_(std::move(under_way)) {
    under_way_->Add();
  }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  ~Held() {
    object_.reset();
    under_way_->Remove();
  }

  const std::shared_ptr<T>& object() const { return object_; }

 private:
  std::shared_ptr<T> object_;
  const std::shared_ptr<UnderWay> under_way_;
};

class TestStream::Reactor final
    : public ::grpc::ClientBidiReactor<::grpc::ByteBuffer, ::grpc::ByteBuffer> {
 public:
  using Held = TestClient::Held<TestStream>;

  explicit Reactor(std::unique_ptr<Held> held) : held_(std::move(held)) {}

  // Held until the stream is over, since messages may be sent at any time.
  void Begin() {
    AddHold();
    StartRead(&incoming_);
    StartCall();
  }

  void Write(const std::string& message) {
    outgoing_ = ToBuffer(message);
    StartWrite(&outgoing_);
  }

  void OnReadInitialMetadataDone(bool ok) override {
    if (ok) {
      Post([](TestStream& stream) { stream.accepted = true; });
    }
  }
  void OnReadDone(bool ok) override {
    if (!ok) {
      // Nothing more is sent from now on, so nothing more is held.
      Post([](TestStream& stream) {
        if (Reactor* const reactor = std::exchange(stream.reactor_, nullptr)) {
          reactor->RemoveHold();
        }
      });
      return;
    }
    Post([message = ToString(incoming_)](TestStream& stream) {
      stream.received.push_back(message);
      stream.on_message(message);
    });
    incoming_.Clear();
    StartRead(&incoming_);
  }
  void OnWriteDone(bool ok) override {
    Post([ok](TestStream& stream) { stream.OnWritten(ok); });
  }
  void OnWritesDoneDone(bool ok) override { OnWriteDone(ok); }
  void OnDone(const ::grpc::Status& status) override {
    Post([status = FromGrpc(status)](TestStream& stream) {
      stream.status = status;
      stream.over = true;
      stream.on_over();
    });
    delete this;
  }

 private:
  template <typename Then>
  void Post(Then then) {
    const std::shared_ptr<TestStream>& stream = held_->object();
    stream->loop_.Post([stream, then] { then(*stream); });
  }

  const std::unique_ptr<Held> held_;
  ::grpc::ByteBuffer incoming_;
  ::grpc::ByteBuffer outgoing_;
};

TestStream::TestStream(loop::Loop& loop) : loop_(loop) {}
TestStream::~TestStream() = default;

void TestStream::Send(const std::string& message) {
  if (!half_closed_) {
    unwritten_.emplace_back(message);
    WriteNext();
  }
}

void TestStream::HalfClose() {
  if (!half_closed_) {
    unwritten_.emplace_back(std::nullopt);
    half_closed_ = true;
    WriteNext();
  }
}

void TestStream::WriteNext() {
  if (reactor_ == nullptr || writing_ || unwritten_.empty()) {
    return;
  }
  writing_ = true;
  if (unwritten_.front()) {
    reactor_->Write(*unwritten_.front());
  } else {
    reactor_->StartWritesDone();
  }
  unwritten_.pop_front();
}

void TestStream::OnWritten(bool ok) {
  writing_ = false;
  if (!ok) {
    unwritten_.clear();
  }
  WriteNext();
}

TestClient::TestClient(loop::Loop& loop,
                       const std::string& address,
                       const TestClientOptions& options)
    : loop_(loop),
      work_(loop),
      authorization_(options.authorization),
      stub_(NewChannel(address, options)),
      under_way_(std::make_shared<UnderWay>()) {}

TestClient::~TestClient() {
  CancelAll();
  // What streams hold they let go by a task of the loop, which may not run.
  for (const auto& stream : streams_) {
    if (auto* const reactor = std::exchange(stream->reactor_, nullptr)) {
      reactor->RemoveHold();
    }
  }
  under_way_->AwaitNone();
}

void TestClient::CancelAll() {
  for (const auto& call : calls_) {
    call->Cancel();
  }
  for (const auto& stream : streams_) {
    stream->Cancel();
  }
}

void TestClient::Prepare(::grpc::ClientContext& context,
                         const TestCallOptions& options) {
  if (options.timeout) {
    context.set_deadline(std::chrono::system_clock::now() + *options.timeout);
  }
  context.set_compression_algorithm(options.compression);
  if (!authorization_.empty()) {
    context.AddMetadata("authorization", authorization_);
  }
}

std::shared_ptr<TestCall> TestClient::Call(const std::string& path,
                                           const std::string& request,
                                           const TestCallOptions& options) {
  auto call = std::make_shared<TestCall>();
  calls_.push_back(call);
  Prepare(call->context, options);
  struct Buffers {
    ::grpc::ByteBuffer request;
    ::grpc::ByteBuffer response;
  };
  const auto buffers = std::make_shared<Buffers>();
  buffers->request = ToBuffer(request);
  const auto held = std::make_shared<Held<TestCall>>(call, under_way_);
  stub_.UnaryCall(
      &call->context, path, {}, &buffers->request, &buffers->response,
      [this, held, buffers](const ::grpc::Status& status) {
        loop_.Post([call = held->object(), status = FromGrpc(status),
                    response = ToString(buffers->response)] {
          call->status = status;
          call->response = response;
          call->over = true;
          call->on_over();
        });
      });
  return call;
}

std::shared_ptr<TestStream> TestClient::Open(const std::string& path,
                                             const TestCallOptions& options) {
  auto stream = std::make_shared<TestStream>(loop_);
  streams_.push_back(stream);
  Prepare(stream->context, options);
  stream->reactor_ = new TestStream::Reactor(
      std::make_unique<Held<TestStream>>(stream, under_way_));
  stub_.PrepareBidiStreamingCall(&stream->context, path, {}, stream->reactor_);
  stream->reactor_->Begin();
  return stream;
}

}  // namespace rpc::grpc
