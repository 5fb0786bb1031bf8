// Records what a real client and a real server say to each other, as the first
// inputs of the transport's fuzzers:
//
//   record_conversations FOLDER
//
// writes FOLDER/client/* and FOLDER/server/*, each file what one side has said.

#include <asio/write.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/fuzzing/client_conversation.h"
#include "core/common/rpc/transport/fuzzing/conversation.h"
#include "core/common/rpc/transport/fuzzing/fuzzed_service.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using Socket = asio::local::stream_protocol::socket;

// Passes bytes on from one socket to another, and keeps them.
class Tap {
 public:
  Tap(Socket& from, Socket& to) : from_(from), to_(to) { Await(); }

  const std::string& bytes() const { return bytes_; }

 private:
  void Await() {
    from_.async_wait(asio::socket_base::wait_read,
                     [this](const std::error_code& error) {
                       if (!error) {
                         Pass();
                       }
                     });
  }

  void Pass() {
    const std::string chunk = ReadAll(from_);
    std::error_code ignored;
    if (chunk.empty()) {
      to_.close(ignored);
      return;
    }
    asio::write(to_, asio::buffer(chunk), ignored);
    bytes_ += chunk;
    Await();
  }

  Socket& from_;
  Socket& to_;
  std::string bytes_;
};

// A client and a server, with taps between them.
class Recording {
 public:
  explicit Recording(const ServerOptions& options = {}) {
    server_.emplace(loop_, options);
    server_->AddService(&service_);
  }

  // Has another client take up a connection.
  void AddSilentClient() {
    auto [ours, theirs] = torvane::SocketPair();
    silent_clients_.push_back(std::move(ours));
    server_->Adopt(std::move(theirs));
  }

  void Talk(const ClientConversation::Topics& topics) {
    server_->Adopt(std::move(to_server_.second));
    auto client = Client::Adopt(loop_, std::move(to_client_.second), {});
    if (!client.ok()) {
      return;
    }
    auto conversation = std::make_unique<ClientConversation>(**client, topics);
    RunReady();
    server_->Stop();
    RunReady();
  }

  void Save(const std::filesystem::path& folder, const std::string& name) {
    SaveSide(folder / "client", name, client_says_.bytes());
    SaveSide(folder / "server", name, server_says_.bytes());
  }

 private:
  void RunReady() { loop_.RunReady(); }

  static void SaveSide(const std::filesystem::path& folder,
                       const std::string& name,
                       const std::string& bytes) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << bytes;
    std::cout << folder / name << ": " << Cut(bytes).size() << " frames\n";
  }

  loop::Loop loop_;
  FuzzedService service_;
  std::pair<loop::ScopedFd, loop::ScopedFd> to_server_ = torvane::SocketPair();
  std::pair<loop::ScopedFd, loop::ScopedFd> to_client_ = torvane::SocketPair();
  Socket server_tap_ = Watch(loop_, std::move(to_server_.first));
  Socket client_tap_ = Watch(loop_, std::move(to_client_.first));
  std::vector<loop::ScopedFd> silent_clients_;
  std::optional<Server> server_;
  Tap client_says_{client_tap_, server_tap_};
  Tap server_says_{server_tap_, client_tap_};
};

void Record(const std::filesystem::path& folder) {
  const struct {
    const char* name;
    ClientConversation::Topics topics;
  } conversations[] = {
      {"calls", {.calls = true, .events = false, .questions = false}},
      {"events", {.calls = false, .events = true, .questions = false}},
      {"questions", {.calls = false, .events = false, .questions = true}},
      {"everything", {}}};
  for (const auto& [name, topics] : conversations) {
    Recording recording;
    recording.Talk(topics);
    recording.Save(folder, name);
  }
  ServerOptions options;
  options.limits.max_connections = 1;
  Recording refusal(options);
  refusal.AddSilentClient();
  refusal.Talk({});
  refusal.Save(folder, "refusal");
}

}  // namespace
}  // namespace rpc::transport

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: record_conversations FOLDER\n";
    return 2;
  }
  rpc::transport::Record(argv[1]);
  return 0;
}
