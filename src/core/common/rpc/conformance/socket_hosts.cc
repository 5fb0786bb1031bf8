// The reference transport, over three kinds of sockets.

#include <sys/socket.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/conformance/transport_under_test.h"
#include "core/common/rpc/loop/readable_watch.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/testing/host_process.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/server.h"

namespace rpc::conformance {
namespace {

using loop::ScopedFd;

transport::ServerOptions Options() {
  transport::ServerOptions options;
  options.limits = PatientLimits();
  return options;
}

transport::ClientOptions OptionsOfClients() {
  transport::ClientOptions options;
  options.limits = PatientLimits();
  return options;
}

class SocketCall final : public LinkCall, private google::protobuf::Closure {
 public:
  SocketCall(transport::Client& client,
             int method,
             const google::protobuf::Message& request)
      : LinkCall(method) {
    client.CallMethod(Method(method), &controller_, &request, response.get(),
                      this);
  }

 private:
  void Run() override { End(controller_.ErrorText()); }

  transport::ClientController controller_;
};

class SocketStream final : public LinkStream {
 public:
  SocketStream(transport::Client& client, int method)
      : stream_(
            client,
            Method(method),
            [this](const auto& message) { received.push_back(message); },
            [this](const absl::Status&) { over = true; }) {}

  void Send(const transport::StreamMessage& message) override {
    stream_.Send(message);
  }
  void SendError(const transport::StreamMessage& message) override {
    stream_.SendError(message);
  }
  void End() override { stream_.End(); }

 private:
  transport::ClientStream stream_;
};

class SocketLink final : public Link {
 public:
  explicit SocketLink(absl::StatusOr<std::unique_ptr<transport::Client>> client)
      : client_(std::move(client).value()) {}

  LinkCall& Call(int method,
                 const google::protobuf::Message& request) override {
    return *calls_.emplace_back(
        std::make_unique<SocketCall>(*client_, method, request));
  }
  LinkStream& Open(int method) override {
    return *streams_.emplace_back(
        std::make_unique<SocketStream>(*client_, method));
  }
  void Break() override { client_.reset(); }

 private:
  std::vector<std::unique_ptr<SocketCall>> calls_;
  std::vector<std::unique_ptr<SocketStream>> streams_;
  // Declared last, so destroyed first: its destructor ends the calls and
  // streams above.
  std::unique_ptr<transport::Client> client_;
};

// Server and client in one process, on one loop.
class SocketPair : public Host {
 public:
  SocketPair() { server_.AddService(&service_); }

  std::unique_ptr<Link> Connect() override {
    auto [client_end, server_end] = torvane::SocketPair();
    return Connect(std::move(client_end), std::move(server_end));
  }
  void Stop() override { server_.Stop(); }
  bool HasStreams() const override {
    return server_.counters().streams_now != 0;
  }

 protected:
  std::unique_ptr<Link> Connect(ScopedFd client_end, ScopedFd server_end) {
    server_.Adopt(std::move(server_end));
    return std::make_unique<SocketLink>(transport::Client::Adopt(
        loop_, std::move(client_end), OptionsOfClients()));
  }

 private:
  ScriptedService service_{loop_};
  transport::Server server_{loop_, Options()};
};

// Copies what arrives at each of two sockets to the other, one byte at a time.
class BytePump {
 public:
  BytePump(loop::Loop& loop, ScopedFd left, ScopedFd right)
      : left_(std::move(left)), right_(std::move(right)) {
    left_watch_.emplace(loop, left_.get(), [this] {
      HandOn(left_.get(), right_.get(), left_watch_);
    });
    right_watch_.emplace(loop, right_.get(), [this] {
      HandOn(right_.get(), left_.get(), right_watch_);
    });
  }

 private:
  // Copies one byte. A byte that can't be written yet stays in `from`, so that
  // `watch` calls again.
  static void HandOn(int from,
                     int to,
                     std::optional<loop::ReadableWatch>& watch) {
    char byte;
    const bool has_byte = recv(from, &byte, 1, MSG_PEEK) == 1;
    if (has_byte && send(to, &byte, 1, MSG_DONTWAIT | MSG_NOSIGNAL) == 1) {
      recv(from, &byte, 1, 0);
    } else if (!has_byte || errno != EAGAIN) {
      shutdown(to, SHUT_RDWR);
      watch.reset();
    }
  }

  const ScopedFd left_;
  const ScopedFd right_;
  std::optional<loop::ReadableWatch> left_watch_;
  std::optional<loop::ReadableWatch> right_watch_;
};

class ByteByByte final : public SocketPair {
 public:
  std::unique_ptr<Link> Connect() override {
    auto [client_end, left] = torvane::SocketPair();
    auto [right, server_end] = torvane::SocketPair();
    pumps_.push_back(
        std::make_unique<BytePump>(loop_, std::move(left), std::move(right)));
    return SocketPair::Connect(std::move(client_end), std::move(server_end));
  }

 private:
  std::vector<std::unique_ptr<BytePump>> pumps_;
};

// The server in a child process, behind a socket file.
class Process final : public Host {
 public:
  std::unique_ptr<Link> Connect() override {
    return std::make_unique<SocketLink>(
        transport::Client::Connect(loop_, path_, OptionsOfClients()));
  }
  void Stop() override { process_.reset(); }
  bool HasStreams() const override {
    ABSL_CHECK(false) << "another process can't be looked into";
  }

 private:
  void Serve(const std::function<void()>& ready) const {
    loop::Loop loop;
    ScriptedService service(loop);
    transport::Server server(loop, Options());
    server.AddService(&service);
    if (server.Listen(path_).ok()) {
      ready();
      loop.Run();
    }
  }

  const torvane::PrivateFolder folder_;
  const std::string path_ = folder_.File("socket");
  std::optional<torvane::HostProcess> process_{
      std::in_place, [this](const auto& ready) { Serve(ready); }};
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
