// The service of the transport's tests, and clients and servers around it.

#ifndef CORE_COMMON_RPC_TRANSPORT_TESTING_LAB_H_
#define CORE_COMMON_RPC_TRANSPORT_TESTING_LAB_H_

#include <google/protobuf/service.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/wire/frame_codec.h"
#include "lab.pb.h"
#include "lab.rpc.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class LabService : public lab::LabRpc {
 public:
  // A call of Park that goes on.
  struct Parked {
    serving::CallContext* controller;
    std::string text;
    lab::Text* response;
    google::protobuf::Closure* done;

    // Answers with the text.
    void Complete() const {
      response->set_text(text);
      done->Run();
    }
  };

  LabService();
  ~LabService() override;

  void Echo(google::protobuf::RpcController* controller,
            const lab::Text* request,
            lab::Text* response,
            google::protobuf::Closure* done) override;
  void Fail(google::protobuf::RpcController* controller,
            const lab::Text* request,
            lab::Text* response,
            google::protobuf::Closure* done) override;
  void Park(google::protobuf::RpcController* controller,
            const lab::Text* request,
            lab::Text* response,
            google::protobuf::Closure* done) override;
  void Make(google::protobuf::RpcController* controller,
            const lab::Number* request,
            lab::Text* response,
            google::protobuf::Closure* done) override;

  // Called with each call of Echo, first.
  std::function<void(serving::CallContext*)> on_echo;
  std::vector<Parked> parked;
};

// An asynchronous call of one of Lab's text methods and all that belongs to it.
struct TextCall {
  TextCall() = default;
  explicit TextCall(std::function<void()> then) : done(std::move(then)) {}

  using Method = void (lab::Lab_Stub::*)(google::protobuf::RpcController*,
                                         const lab::Text*,
                                         lab::Text*,
                                         google::protobuf::Closure*);
  void Start(Client& client, Method method, const std::string& text);

  bool over() const { return done.runs() > 0; }

  ClientController controller;
  lab::Text response;
  torvane::CountingClosure done;
};

// A blocking call.
absl::StatusOr<std::string> CallText(Client& client,
                                     TextCall::Method method,
                                     const std::string& text);

// The other end of a connection. Sends the frames and bytes that the test says,
// whether the protocol allows them or not.
class RawPeer {
 public:
  RawPeer(loop::Loop& loop, loop::ScopedFd socket);

  void SendBytes(const std::string& bytes);
  void Send(FrameKind kind, const google::protobuf::MessageLite& body);
  void SendHello();

  // Runs the loop until a frame has come. Nothing when the connection was
  // closed instead.
  std::optional<Frame> Receive();

  // Runs the loop until the connection is closed; says with which goodbye.
  absl::Status AwaitGoodbye();

  // What `method` of Lab is called on this connection, by its welcome.
  uint64_t IdOf(const std::string& method) const;

  // What starts a call of it, with an empty request.
  CallFrame CallOf(const std::string& method, uint64_t call_id) const;

  void Close();

  asio::local::stream_protocol::socket& socket() { return socket_; }

 private:
  loop::Loop& loop_;
  asio::local::stream_protocol::socket socket_;
  FrameBuffer input_;
  WelcomeFrame welcome_;
};

// A server with the lab's service, and ways to be connected to it. Everything
// runs on one loop in one thread.
class Lab {
 public:
  explicit Lab(const ServerOptions& options = {});
  ~Lab();

  // One end of a new connection, the other of which the server has.
  loop::ScopedFd Connect();
  std::unique_ptr<Client> NewClient(ClientOptions options = {});
  std::unique_ptr<RawPeer> NewPeer();

  // Runs the loop until `condition` holds.
  void RunUntil(const std::function<bool()>& condition);

  // Runs what is ready, and what becomes ready by that.
  void RunReady();

  loop::Loop loop;
  LabService service;
  std::optional<Server> server;
};

// For tests whose clients send more than a client usually may.
ServerOptions WithLargeRequests();

// A client whose server is a raw peer, on one loop. The server offers Echo and
// Watch of the lab, under the ids 0 and 1.
struct RawServer {
  explicit RawServer(loop::Loop& loop, ClientOptions options = {});

  RawPeer peer;
  std::unique_ptr<Client> client;

 private:
  using Sockets = std::pair<loop::ScopedFd, loop::ScopedFd>;
  RawServer(loop::Loop& loop, Sockets sockets, ClientOptions options);
};

// A descriptor as a socket of Asio's, which does not block.
asio::local::stream_protocol::socket Watch(loop::Loop& loop,
                                           loop::ScopedFd socket);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_TESTING_LAB_H_
