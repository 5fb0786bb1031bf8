// A module that instantiates a stream type, as any part of a browser may.

#include <cstddef>
#include <utility>

#include "core/common/rpc/stream/callback_stream.h"
#include "streams_only.pb.h"

extern "C" void* RegistryOfModule() {
  return &torvane::CallbackStream<streams::MayI>::stream_map_;
}

extern "C" size_t BindingsInModule() {
  return torvane::CallbackStream<streams::MayI>::stream_map_.size();
}

extern "C" void SubscribeInModule(torvane::AbstractStream* stream,
                                  const BrowserId* window) {
  static_cast<torvane::CallbackStream<streams::MayI>*>(stream)->Subscribe(
      *window);
}

extern "C" torvane::AbstractStream* OpenInModule(
    torvane::Service* service,
    torvane::StreamChannel* channel) {
  return new torvane::CallbackStream<streams::MayI>(service, nullptr,
                                                    std::move(*channel));
}
