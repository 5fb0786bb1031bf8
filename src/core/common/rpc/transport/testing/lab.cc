#include "core/common/rpc/transport/testing/lab.h"

#include <system_error>

#include "absl/log/absl_check.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/wire/rpc_status.h"

namespace rpc::transport {

LabService::LabService() = default;
LabService::~LabService() = default;

void LabService::Echo(google::protobuf::RpcController* controller,
                      const lab::Text* request,
                      lab::Text* response,
                      google::protobuf::Closure* done) {
  if (on_echo) {
    on_echo(&serving::CallContext::Of(controller));
  }
  response->set_text(request->text());
  done->Run();
}

void LabService::Fail(google::protobuf::RpcController* controller,
                      const lab::Text* request,
                      lab::Text*,
                      google::protobuf::Closure* done) {
  controller->SetFailed(request->text());
  done->Run();
}

void LabService::Park(google::protobuf::RpcController* controller,
                      const lab::Text* request,
                      lab::Text* response,
                      google::protobuf::Closure* done) {
  parked.push_back(
      {&serving::CallContext::Of(controller), request->text(), response, done});
}

void LabService::Make(google::protobuf::RpcController*,
                      const lab::Number* request,
                      lab::Text* response,
                      google::protobuf::Closure* done) {
  response->set_text(std::string(static_cast<size_t>(request->number()), 'x'));
  done->Run();
}

void TextCall::Start(Client& client, Method method, const std::string& text) {
  lab::Lab_Stub stub(&client);
  lab::Text request;
  request.set_text(text);
  (stub.*method)(&controller, &request, &response, &done);
}

absl::StatusOr<std::string> CallText(Client& client,
                                     TextCall::Method method,
                                     const std::string& text) {
  lab::Lab_Stub stub(&client);
  ClientController controller;
  lab::Text request;
  lab::Text response;
  request.set_text(text);
  (stub.*method)(&controller, &request, &response, nullptr);
  if (!controller.status().ok()) {
    return controller.status();
  }
  return response.text();
}

asio::local::stream_protocol::socket Watch(loop::Loop& loop,
                                           loop::ScopedFd socket) {
  asio::local::stream_protocol::socket watched(loop.context());
  std::error_code error;
  watched.assign(asio::local::stream_protocol(), socket.Release(), error);
  ABSL_CHECK(!error) << error.message();
  watched.non_blocking(true, error);
  ABSL_CHECK(!error) << error.message();
  return watched;
}

RawPeer::RawPeer(loop::Loop& loop, loop::ScopedFd socket)
    : loop_(loop),
      socket_(Watch(loop, std::move(socket))),
      input_(serving::Limits().max_frame_bytes) {}

// What does not fit goes out when the loop has made room. A connection that is
// closed meanwhile takes the rest with it.
void RawPeer::SendBytes(const std::string& bytes) {
  size_t sent = 0;
  std::error_code error;
  while (sent < bytes.size() && (!error || error == asio::error::would_block)) {
    sent += socket_.write_some(
        asio::buffer(bytes.data() + sent, bytes.size() - sent), error);
    if (error == asio::error::would_block) {
      loop_.RunReady();
    }
  }
}

void RawPeer::Send(FrameKind kind, const google::protobuf::MessageLite& body) {
  std::string bytes;
  AppendFrame(kind, body, FrameSize(body), &bytes);
  SendBytes(bytes);
}

void RawPeer::SendHello() {
  HelloFrame hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_max_frame_bytes(1 << 20);
  hello.set_client_name("raw");
  Send(Frame::kHello, hello);
}

std::optional<Frame> RawPeer::Receive() {
  FrameView view;
  absl::Status status;
  while (input_.Next(&view, &status) != FrameBuffer::kFrame) {
    bool closed = false;
    bool read = false;
    const auto space = input_.Space();
    socket_.async_read_some(asio::buffer(space.data(), space.size()),
                            [&](const std::error_code& error, size_t size) {
                              input_.Commit(size);
                              closed = static_cast<bool>(error);
                              read = true;
                            });
    loop_.RunUntil([&read] { return read; });
    if (closed) {
      return std::nullopt;
    }
  }
  // The envelope is gone: put the body into a new one.
  std::string bytes;
  bytes.push_back(static_cast<char>((view.kind << 3) | 2));
  size_t size = view.body.size();
  for (; size >= 0x80; size >>= 7) {
    bytes.push_back(static_cast<char>((size & 0x7f) | 0x80));
  }
  bytes.push_back(static_cast<char>(size));
  bytes.append(view.body);
  Frame frame;
  ABSL_CHECK(frame.ParseFromString(bytes));
  if (frame.has_welcome()) {
    welcome_ = frame.welcome();
  }
  return frame;
}

absl::Status RawPeer::AwaitGoodbye() {
  absl::Status status;
  while (const std::optional<Frame> frame = Receive()) {
    if (frame->has_goodbye()) {
      status = FromWire(frame->goodbye().status());
    }
  }
  return status;
}

uint64_t RawPeer::IdOf(const std::string& method) const {
  for (const OfferedService& service : welcome_.services()) {
    for (const OfferedMethod& offered : service.methods()) {
      if (offered.name() == method) {
        return offered.id();
      }
    }
  }
  ABSL_CHECK(false) << "no method " << method;
}

CallFrame RawPeer::CallOf(const std::string& method, uint64_t call_id) const {
  CallFrame call;
  call.set_call_id(call_id);
  call.set_method_id(IdOf(method));
  return call;
}

void RawPeer::Close() {
  std::error_code error;
  socket_.close(error);
}

ServerOptions WithLargeRequests() {
  ServerOptions options;
  options.limits.max_client_frame_bytes = options.limits.max_frame_bytes;
  return options;
}

RawServer::RawServer(loop::Loop& loop, ClientOptions options)
    : RawServer(loop, torvane::SocketPair(), std::move(options)) {}

RawServer::RawServer(loop::Loop& loop, Sockets sockets, ClientOptions options)
    : peer(loop, std::move(sockets.first)) {
  WelcomeFrame welcome;
  welcome.set_protocol_version(kProtocolVersion);
  welcome.set_max_frame_bytes(1 << 20);
  OfferedService* service = welcome.add_services();
  service->set_full_name("lab.Lab");
  OfferedMethod* echo = service->add_methods();
  echo->set_name("Echo");
  OfferedMethod* watch = service->add_methods();
  watch->set_name("Watch");
  watch->set_id(1);
  watch->set_streaming(true);
  peer.Send(Frame::kWelcome, welcome);
  auto adopted =
      Client::Adopt(loop, std::move(sockets.second), std::move(options));
  ABSL_CHECK(adopted.ok()) << adopted.status();
  client = *std::move(adopted);
}

Lab::Lab(const ServerOptions& options) : server(std::in_place, loop, options) {
  server->AddService(&service);
}

Lab::~Lab() = default;

loop::ScopedFd Lab::Connect() {
  auto [ours, theirs] = torvane::SocketPair();
  server->Adopt(std::move(theirs));
  return std::move(ours);
}

std::unique_ptr<Client> Lab::NewClient(ClientOptions options) {
  absl::StatusOr<std::unique_ptr<Client>> client =
      Client::Adopt(loop, Connect(), std::move(options));
  ABSL_CHECK(client.ok()) << client.status();
  return *std::move(client);
}

std::unique_ptr<RawPeer> Lab::NewPeer() {
  auto peer = std::make_unique<RawPeer>(loop, Connect());
  peer->SendHello();
  const std::optional<Frame> welcome = peer->Receive();
  ABSL_CHECK(welcome && welcome->has_welcome());
  return peer;
}

void Lab::RunUntil(const std::function<bool()>& condition) {
  ABSL_CHECK(loop.RunUntil(condition)) << "nothing is left to wait for";
}

void Lab::RunReady() {
  loop.RunReady();
}

}  // namespace rpc::transport
