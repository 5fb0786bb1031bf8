// One unary call on the server's side: its messages, its controller and the
// closure that its method is given.
//
// Ownership: whoever holds the closure, by holding it: a call lives until its
// closure has been run, even when the connection and the server are gone by
// then. After that it goes back to the pool that it came from. The session that
// it came in on keeps a plain pointer to it for as long as it waits for the
// result.
//
// Sequence: the loop's, but for Run(), which any thread may call once.
//
// Failure: running the closure twice ends the process.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_CALL_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_CALL_H_

#include <google/protobuf/message.h>
#include <google/protobuf/service.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/served_methods.h"
#include "core/common/rpc/transport/server_controller.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ServerCall;

// Who waits for the results of calls.
class ServerCallOwner {
 public:
  // `call` is over, after Invoke() had returned true. The call is gone when
  // this returns.
  virtual void OnCallDone(const ServerCall& call) = 0;

  // The deadline of `call` has passed.
  virtual void OnCallExpired(ServerCall& call) = 0;

 protected:
  ~ServerCallOwner() = default;
};

// Where a server's calls come from and return to.
class ServerCallPool final
    : public std::enable_shared_from_this<ServerCallPool> {
 public:
  ServerCallPool(asio::io_context& loop, std::shared_ptr<Counters> counters);
  ~ServerCallPool();

  ServerCall* Take();
  void Return(ServerCall* call);

  // The server goes: idle calls are destroyed, others when they return.
  void Close();

  bool closed() const { return closed_; }
  asio::io_context& loop() { return loop_; }
  Counters& counters() { return *counters_; }

 private:
  asio::io_context& loop_;
  const std::shared_ptr<Counters> counters_;
  bool closed_ = false;
  // Idle ones; the longest idle first.
  std::deque<std::unique_ptr<ServerCall>> idle_;
};

class ServerCall final : public google::protobuf::Closure {
 public:
  explicit ServerCall(std::shared_ptr<ServerCallPool> pool);
  ~ServerCall() override;

  // Makes the messages of `method` and reads the request of `frame`. When this
  // fails the caller returns the call to the pool.
  absl::Status Prepare(const ServedMethod& method,
                       const CallFrame& frame,
                       const std::string& peer);

  // Calls the method. True when the call goes on: `owner` is told when it is
  // over. False when it is over already: the caller takes the result and
  // returns the call to the pool.
  bool Invoke(ServerCallOwner* owner);

  // The owner waits no longer: the method is told, its result will be dropped.
  // Until it is, the call counts in `abandoned`. The call may be gone when this
  // returns.
  void Abandon(const std::shared_ptr<size_t>& abandoned);

  uint64_t id() const { return id_; }
  const absl::Status& status() const { return controller_.status(); }
  const google::protobuf::Message& response() const { return *response_; }

  // The method has completed the call.
  void Run() override;

 private:
  friend class ServerCallPool;

  enum class Closure { kSpent, kReady };

  void AwaitDeadline();
  void OnDone();
  void Clear();

  const std::shared_ptr<ServerCallPool> pool_;
  ServerController controller_;
  std::unique_ptr<google::protobuf::Message> request_;
  std::unique_ptr<google::protobuf::Message> response_;
  torvane::Service* service_ = nullptr;
  const google::protobuf::MethodDescriptor* method_ = nullptr;
  uint64_t id_ = 0;

  // Who waits for the result. Null until Invoke() has returned, and when the
  // owner waits no longer.
  ServerCallOwner* owner_ = nullptr;
  // Where the call counts as given up; null until it is.
  std::shared_ptr<size_t> abandoned_;
  std::optional<asio::steady_timer> timer_;
  // Tells apart the calls that this object has been.
  uint64_t serial_ = 0;
  // The method is on the stack; and has run the closure there.
  bool invoking_ = false;
  bool done_ = false;
  std::atomic<Closure> closure_ = Closure::kSpent;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_CALL_H_
