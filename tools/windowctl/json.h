// Messages as a person types and reads them: the JSON of Protocol Buffers, on
// one line.
//
// Sequence: any thread.
//
// Failure: INVALID_ARGUMENT with a text that says where the JSON is wrong, and
// shows the message type that was expected.

#ifndef TOOLS_WINDOWCTL_JSON_H_
#define TOOLS_WINDOWCTL_JSON_H_

#include <google/protobuf/message.h>

#include <string>

#include "absl/status/status.h"

namespace windowctl {

// Names that the message type does not have are an error, so that a slip of the
// pen does not go unnoticed.
absl::Status FromJson(const std::string& json,
                      google::protobuf::Message* message);

// With all fields that have no presence, so that false and zero can be seen.
std::string ToJson(const google::protobuf::Message& message);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_JSON_H_
