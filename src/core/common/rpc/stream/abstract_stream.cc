#include "core/common/rpc/stream/abstract_stream.h"

#include <utility>

namespace torvane {

AbstractStream::AbstractStream(StreamChannel channel)
    : channel_(std::move(channel)) {}

AbstractStream::~AbstractStream() = default;

bool AbstractStream::Send(const rpc::transport::StreamMessage& frame) {
  return channel_.Send(frame);
}

void AbstractStream::Complete() {
  channel_.Complete();
}

}  // namespace torvane
