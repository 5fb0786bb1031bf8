// Says what clients have really said once, but for messages that have been
// changed: the mutator of conversation_mutator.cc changes some, anywhere in the
// conversation, and leaves the rest as it was.

#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/transport/fuzzing/conversation.h"
#include "core/common/rpc/transport/fuzzing/fuzzed_server.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  rpc::transport::FuzzedServer server;
  for (const auto& utterance : rpc::transport::Cut(bytes)) {
    server.Say(utterance);
    server.CheckBalance();
  }
  return 0;
}
