// The two fields that gRPC adds to the messages of questions.
//
// The native protocol carries the number of a question, and the refusal of an
// answer, beside the message. A gRPC client sees only the message, so there
// they are fields of it:
//
//   bool declined = 14;   from the client, in place of a response: there will
//                         be no answer
//   int64 call_id = 15;   which question it is, or is answered
//
// They are put in and taken out here without the message being parsed, so that
// nobody's descriptors are needed: a field that is appended to a message is one
// of its fields. A message of questions has its window in field 1, and
// `subscribe` and `response` in 2 and 4 (stream/method_kind.h).
//
// Ownership: values. Sequence: any.
//
// Failure: what is no message is left as it is: whoever gets it refuses it.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_QUESTION_FIELDS_H_
#define CORE_COMMON_RPC_GRPC_FRONT_QUESTION_FIELDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rpc::grpc {

inline constexpr int kWindowField = 1;
inline constexpr int kSubscribeField = 2;
inline constexpr int kResponseField = 4;
inline constexpr int kDeclinedField = 14;
inline constexpr int kCallIdField = 15;

// Makes `call_id` a field of the message: two to eleven bytes more.
void AppendCallId(int64_t call_id, std::string& message);

// What a message of a client says beside what the service gets to see.
struct QuestionFields {
  // Its bytes in field 1, empty where there is none. As in protobuf, the last
  // of several fields of one number counts.
  std::string window;
  std::optional<bool> subscribe;
  bool has_response = false;
  bool declined = false;
  std::optional<int64_t> call_id;
};

// Reads what `message` says, and takes `declined` and `call_id` out of it. All
// other fields stay as they are, byte for byte. A message that is broken stays
// as it is as a whole, and says nothing.
QuestionFields TakeQuestionFields(std::string& message);

// The window of a message, empty where there is none, or the message is broken.
std::string WindowOf(std::string_view message);

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_QUESTION_FIELDS_H_
