// Messages as a person types and reads them: the JSON of Protocol Buffers, on
// one line.
//
// Sequence: any thread.
//
// Failure: INVALID_ARGUMENT with a text that says where the JSON is wrong, and
// shows the message type that was expected.

#ifndef TOOLS_RPCCTL_JSON_H_
#define TOOLS_RPCCTL_JSON_H_

#include <google/protobuf/message.h>

#include <string>

#include "absl/status/status.h"

namespace rpcctl {

// Fields that the message type does not have are an error, so that a mistyped
// name does not go unnoticed.
absl::Status FromJson(const std::string& json,
                      google::protobuf::Message* message);

// Fields without presence are printed also when they are false, 0 or empty. A
// terminal can show the result: what could act on it stands there as \uXXXX
// (tools/cli/printable.h), which a parser reads as the same text.
std::string ToJson(const google::protobuf::Message& message);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_JSON_H_
