#include "core/common/rpc/stream/abstract_stream.h"

#include <utility>

namespace torvane {

AbstractStream::AbstractStream(StreamChannel channel)
    : channel_(std::move(channel)) {}

AbstractStream::~AbstractStream() = default;

}  // namespace torvane
