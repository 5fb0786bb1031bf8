// Says anything to a server that has just accepted a connection. Only a client
// that has introduced itself as it should is let in.

#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/transport/fuzzing/conversation.h"
#include "core/common/rpc/transport/fuzzing/fuzzed_server.h"

namespace rpc::transport {
namespace {

bool IsProperHello(const Utterance& utterance) {
  HelloFrame hello;
  return utterance.kind == Frame::kHello &&
         hello.ParseFromString(utterance.body) &&
         hello.protocol_version() == kProtocolVersion &&
         hello.max_frame_bytes() >= serving::kMinFrameBytes;
}

}  // namespace
}  // namespace rpc::transport

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto utterances = rpc::transport::Cut(bytes);
  rpc::transport::FuzzedServer server;
  bool proper = false;
  for (size_t i = 0; i < utterances.size(); ++i) {
    server.Say(utterances[i]);
    proper = proper || (i == 0 && rpc::transport::IsProperHello(utterances[0]));
    EXPECT_EQ(server.welcomed(), proper);
  }
  return 0;
}
