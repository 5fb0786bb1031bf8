#include "core/common/rpc/stream/stream_channel.h"

#include <utility>

namespace torvane {

StreamChannel::StreamChannel(std::unique_ptr<Endpoint> endpoint)
    : endpoint_(std::move(endpoint)) {}

StreamChannel::StreamChannel(StreamChannel&&) noexcept = default;

StreamChannel::~StreamChannel() = default;

}  // namespace torvane
