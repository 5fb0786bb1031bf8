// A stream channel whose other end is the test.

#ifndef CORE_COMMON_RPC_TESTING_FAKE_ENDPOINT_H_
#define CORE_COMMON_RPC_TESTING_FAKE_ENDPOINT_H_

#include <functional>
#include <memory>
#include <vector>

#include "core/common/rpc/stream/stream_channel.h"
#include "rpc/transport/stream_message.pb.h"

namespace torvane {

// Records what the endpoint was given. Shared by the test and the endpoint,
// since either may be destroyed first.
struct FakeClient {
  std::vector<rpc::transport::StreamMessage> frames;
  int completions = 0;
  int endpoints_destroyed = 0;

  // What Send() returns.
  bool reachable = true;
  // If set, run within Send() and Complete().
  std::function<void(const rpc::transport::StreamMessage&)> on_frame;
  std::function<void()> on_complete;
};

class FakeEndpoint : public StreamChannel::Endpoint {
 public:
  explicit FakeEndpoint(std::shared_ptr<FakeClient> client)
      : client_(std::move(client)) {}

  ~FakeEndpoint() override { ++client_->endpoints_destroyed; }

  bool Send(const rpc::transport::StreamMessage& frame) override {
    if (!client_->reachable)
      return false;
    client_->frames.push_back(frame);
    if (client_->on_frame)
      client_->on_frame(frame);
    return true;
  }

  void Complete() override {
    ++client_->completions;
    if (client_->on_complete)
      client_->on_complete();
  }

 private:
  const std::shared_ptr<FakeClient> client_;
};

inline StreamChannel MakeChannel(
    std::shared_ptr<FakeClient> client = std::make_shared<FakeClient>()) {
  return StreamChannel(std::make_unique<FakeEndpoint>(std::move(client)));
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_FAKE_ENDPOINT_H_
