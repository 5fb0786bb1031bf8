#include "core/common/rpc/grpc/testing/silent_peer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <utility>

namespace rpc::grpc {
namespace {

std::string WithLength(const std::string& text) {
  return static_cast<char>(text.size()) + text;
}

std::string Frame(char type,
                  char flags,
                  char stream,
                  const std::string& content) {
  const auto size = static_cast<char>(content.size());
  return std::string{0, 0, size, type, flags, 0, 0, 0, stream} + content;
}

}  // namespace

SilentPeer::SilentPeer(int port, const std::string& path)
    : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(socket_.get(), reinterpret_cast<sockaddr*>(&address),
                    sizeof(address)),
            0);
  std::string headers;
  for (const auto& [name, value] :
       {std::pair<std::string, std::string>{":method", "POST"},
        {":scheme", "http"},
        {":path", path},
        {":authority", "localhost"},
        {"content-type", "application/grpc"},
        {"te", "trailers"}}) {
    headers += std::string(1, '\0') + WithLength(name) + WithLength(value);
  }
  // Of messages no byte may be on its way.
  const std::string settings = {0, 4, 0, 0, 0, 0};
  Send("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + Frame(4, 0, 0, settings) +
       Frame(1, 4, 1, headers));
}

void SilentPeer::Say(const std::string& message) {
  Send(Frame(0, 0, 1, std::string(4, '\0') + WithLength(message)));
}

void SilentPeer::AwaitEnd() {
  char bytes[1024];
  while (recv(socket_.get(), bytes, sizeof(bytes), 0) > 0) {
  }
}

void SilentPeer::Send(const std::string& bytes) {
  EXPECT_EQ(send(socket_.get(), bytes.data(), bytes.size(), 0),
            static_cast<ssize_t>(bytes.size()));
}

}  // namespace rpc::grpc
