// What becomes of a client's message on a stream of questions that neither
// subscribes nor answers: empty, broken, or of a newer contract.
//
// A value, chosen when a server is made.

#ifndef CORE_COMMON_RPC_SERVING_UNCLEAR_MESSAGES_H_
#define CORE_COMMON_RPC_SERVING_UNCLEAR_MESSAGES_H_

namespace rpc::serving {

enum class UnclearMessages {
  // It ends its stream with INVALID_ARGUMENT.
  kRefuse,
  // The stream gets it, which by the stream's contract ends the process.
  kHandOn,
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_UNCLEAR_MESSAGES_H_
