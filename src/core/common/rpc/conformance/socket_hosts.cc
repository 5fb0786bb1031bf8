// The reference transport, over three kinds of sockets.

#include <google/protobuf/descriptor.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <utility>

#include "core/common/rpc/conformance/link.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/client_core.h"
#include "core/common/rpc/transport/client_streams.h"
#include "core/common/rpc/transport/server.h"

namespace rpc::conformance {
namespace {

using google::protobuf::MethodDescriptor;
using Socket = asio::local::stream_protocol::socket;

const MethodDescriptor* Method(int index) {
  return BrowserWindowRpc::descriptor()->method(index);
}

class SocketStream : public ClientStream,
                     private transport::ClientStreams::Observer {
 public:
  SocketStream(transport::ClientStreams& streams, int method)
      : streams_(&streams), id_(streams.Open(Method(method), this)) {}

  ~SocketStream() override { Abandon(); }

  void Send(const transport::StreamMessage& frame) override {
    streams_->SendData(id_, frame);
  }
  void SendError(const transport::StreamMessage& frame) override {
    streams_->SendError(id_, frame);
  }
  void End() override { streams_->End(id_); }

  // The connection goes.
  void Abandon() {
    if (streams_ && !over)
      streams_->Abandon(id_);
    streams_ = nullptr;
  }

 private:
  void OnData(const transport::StreamMessage& message) override {
    received.push_back(message);
  }
  void OnEnd(const absl::Status&) override { over = true; }

  transport::ClientStreams* streams_;
  const uint64_t id_;
};

class SocketLink : public Link {
 public:
  SocketLink(asio::io_context& loop, std::unique_ptr<transport::Client> client)
      : loop_(loop), client_(std::move(client)) {}

  ~SocketLink() override { Disconnect(); }

  std::shared_ptr<UnaryCall> Call(
      int method,
      const google::protobuf::Message& request) override {
    auto running = std::make_shared<Running>();
    running->call.response.reset(
        google::protobuf::MessageFactory::generated_factory()
            ->GetPrototype(Method(method)->output_type())
            ->New());
    running_.push_back(running);
    client_->CallMethod(Method(method), &running->controller, &request,
                        running->call.response.get(), running.get());
    return std::shared_ptr<UnaryCall>(running, &running->call);
  }

  std::shared_ptr<ClientStream> Open(int method) override {
    auto stream =
        std::make_shared<SocketStream>(client_->core()->streams(), method);
    streams_.push_back(stream);
    return stream;
  }

  void RunUntil(const std::function<bool()>& condition) override {
    while (!condition())
      loop_.run_one();
  }

  void Break() override { Disconnect(); }

 private:
  struct Running : google::protobuf::Closure {
    void Run() override {
      call.failure = controller.ErrorText();
      call.over = true;
    }
    transport::ClientController controller;
    UnaryCall call;
  };

  void Disconnect() {
    for (const auto& stream : streams_)
      stream->Abandon();
    client_.reset();
  }

  asio::io_context& loop_;
  std::vector<std::shared_ptr<Running>> running_;
  std::unique_ptr<transport::Client> client_;
  std::vector<std::shared_ptr<SocketStream>> streams_;
};

std::unique_ptr<Link> LinkOver(
    asio::io_context& loop,
    absl::StatusOr<std::unique_ptr<transport::Client>> client) {
  if (!client.ok())
    abort();
  return std::make_unique<SocketLink>(loop, *std::move(client));
}

// Server and client in one process, on one loop.
class SocketPair : public Host {
 public:
  SocketPair() { server_.AddService(&service_); }

  std::unique_ptr<Link> Connect() override {
    Socket near(loop_);
    Socket far(loop_);
    asio::local::connect_pair(near, far);
    server_.Adopt(std::move(far));
    return LinkOver(loop_, transport::Client::Adopt(loop_, std::move(near)));
  }

 protected:
  asio::io_context loop_{1};
  ScriptedService service_;
  transport::Server server_{loop_};
};

// Hands on what it reads from one socket to another, each byte by itself.
class BytePump : public std::enable_shared_from_this<BytePump> {
 public:
  BytePump(std::shared_ptr<Socket> from, std::shared_ptr<Socket> to)
      : from_(std::move(from)), to_(std::move(to)) {}

  void Start() {
    from_->async_read_some(
        asio::buffer(byte_),
        [self = shared_from_this()](asio::error_code error, size_t) {
          self->Write(error);
        });
  }

 private:
  void Write(asio::error_code error) {
    asio::error_code ignored;
    if (error) {
      to_->shutdown(Socket::shutdown_both, ignored);
      return;
    }
    asio::async_write(
        *to_, asio::buffer(byte_),
        [self = shared_from_this()](asio::error_code failed, size_t) {
          if (!failed)
            self->Start();
        });
  }

  const std::shared_ptr<Socket> from_;
  const std::shared_ptr<Socket> to_;
  std::array<char, 1> byte_;
};

class ByteByByte : public SocketPair {
 public:
  std::unique_ptr<Link> Connect() override {
    Socket server_end(loop_);
    Socket client_end(loop_);
    auto to_server = std::make_shared<Socket>(loop_);
    auto to_client = std::make_shared<Socket>(loop_);
    asio::local::connect_pair(server_end, *to_server);
    asio::local::connect_pair(client_end, *to_client);
    std::make_shared<BytePump>(to_server, to_client)->Start();
    std::make_shared<BytePump>(to_client, to_server)->Start();
    server_.Adopt(std::move(server_end));
    return LinkOver(loop_,
                    transport::Client::Adopt(loop_, std::move(client_end)));
  }
};

// The server in a child process, behind a socket file.
class Process : public Host {
 public:
  Process() {
    std::string folder = std::filesystem::temp_directory_path() / "conf.XXXXXX";
    folder_ = mkdtemp(folder.data());
    int ready[2];
    if (pipe(ready) != 0)
      abort();
    child_ = fork();
    if (child_ == 0)
      Serve(ready[1]);
    close(ready[1]);
    char byte;
    if (read(ready[0], &byte, 1) != 1)
      abort();
    close(ready[0]);
  }

  ~Process() override {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    std::filesystem::remove_all(folder_);
  }

  std::unique_ptr<Link> Connect() override {
    return LinkOver(loop_, transport::Client::Connect(loop_, Path()));
  }

 private:
  std::string Path() const { return folder_ + "/socket"; }

  [[noreturn]] void Serve(int ready) {
    asio::io_context loop(1);
    ScriptedService service;
    transport::Server server(loop);
    server.AddService(&service);
    if (!server.Listen(Path()).ok() || write(ready, "!", 1) != 1)
      _exit(1);
    loop.run();
    _exit(0);
  }

  std::string folder_;
  pid_t child_;
  asio::io_context loop_{1};
};

}  // namespace

std::unique_ptr<Host> SocketPairHost() {
  return std::make_unique<SocketPair>();
}

std::unique_ptr<Host> ByteByByteHost() {
  return std::make_unique<ByteByByte>();
}

std::unique_ptr<Host> ProcessHost() {
  return std::make_unique<Process>();
}

}  // namespace rpc::conformance
