// A gRPC client for tests: everything that comes is noted on a loop, so that
// tests wait for it there. It knows no contract: messages are bytes.
//
//   TestClient client(loop, "127.0.0.1:50051");
//   const auto call = client.Call("/lab.Lab/Echo", bytes);
//   loop.RunUntil([&] { return call->over; });
//
// Ownership: calls and streams are shared with gRPC until they are over. The
// loop outlives the client, which waits in its destructor until gRPC is done
// with all of them: the last to let go of one must not be a thread of gRPC's,
// which would then end itself with the channel.
//
// Sequence: the loop's.

#ifndef CORE_COMMON_RPC_GRPC_TESTING_TEST_CLIENT_H_
#define CORE_COMMON_RPC_GRPC_TESTING_TEST_CLIENT_H_

#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/security/credentials.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/loop/loop.h"

namespace rpc::grpc {

struct TestClientOptions {
  std::shared_ptr<::grpc::ChannelCredentials> credentials =
      ::grpc::InsecureChannelCredentials();
  // "authorization", with each call.
  std::string authorization;
};

// How a call or stream is begun.
struct TestCallOptions {
  std::optional<std::chrono::milliseconds> timeout = std::nullopt;
  grpc_compression_algorithm compression = GRPC_COMPRESS_NONE;
};

class TestCall {
 public:
  void Cancel() { context.TryCancel(); }

  bool over = false;
  absl::Status status;
  std::string response;
  std::function<void()> on_over = [] {};

  ::grpc::ClientContext context;
};

class TestStream : public std::enable_shared_from_this<TestStream> {
 public:
  explicit TestStream(loop::Loop& loop);
  TestStream(const TestStream&) = delete;
  TestStream& operator=(const TestStream&) = delete;
  ~TestStream();

  // Dropped after HalfClose(), and once the stream is over.
  void Send(const std::string& message);
  void HalfClose();
  void Cancel() { context.TryCancel(); }

  // The server has taken the call.
  bool accepted = false;
  std::vector<std::string> received;
  std::function<void(const std::string&)> on_message = [](const auto&) {};
  bool over = false;
  absl::Status status;
  std::function<void()> on_over = [] {};

  ::grpc::ClientContext context;

 private:
  friend class TestClient;
  class Reactor;

  void WriteNext();
  void OnWritten(bool ok);

  loop::Loop& loop_;
  // Null once it is over.
  Reactor* reactor_ = nullptr;
  // Without a message: the end of ours.
  std::deque<std::optional<std::string>> unwritten_;
  bool writing_ = false;
  bool half_closed_ = false;
};

class TestClient {
 public:
  TestClient(loop::Loop& loop,
             const std::string& address,
             const TestClientOptions& options = {});
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;
  // Cancels what is under way.
  ~TestClient();

  std::shared_ptr<TestCall> Call(const std::string& path,
                                 const std::string& request,
                                 const TestCallOptions& options = {});
  std::shared_ptr<TestStream> Open(const std::string& path,
                                   const TestCallOptions& options = {});

  // Cancels what is under way.
  void CancelAll();

 private:
  friend class TestStream;

  // Counts what gRPC is not done with.
  class UnderWay;
  // What gRPC has of a call or stream.
  template <typename T>
  class Held;

  void Prepare(::grpc::ClientContext& context, const TestCallOptions& options);

  loop::Loop& loop_;
  const loop::Loop::Work work_;
  const std::string authorization_;
  ::grpc::GenericStub stub_;
  const std::shared_ptr<UnderWay> under_way_;
  std::vector<std::shared_ptr<TestCall>> calls_;
  std::vector<std::shared_ptr<TestStream>> streams_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_TESTING_TEST_CLIENT_H_
