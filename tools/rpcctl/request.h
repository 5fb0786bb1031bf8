// A request as a person types it behind a method:
//
//   '{"value": 1}'      JSON
//   @FILE               the JSON in a file
//   -                   the JSON on standard input
//   FIELD=VALUE...      fields one by one (fields.h)
//
// Ownership: the message is the caller's.
//
// Sequence: any one. Blocks until a file or standard input is read.
//
// Failure: INVALID_ARGUMENT, or why a file can't be read, with a text for the
// user.

#ifndef TOOLS_RPCCTL_REQUEST_H_
#define TOOLS_RPCCTL_REQUEST_H_

#include <google/protobuf/message.h>

#include <cstddef>
#include <string>
#include <vector>

#include "absl/status/status.h"
#include "absl/status/statusor.h"

namespace rpcctl {

// The longest JSON that is read from a file or from standard input: much more
// than a server takes for a request by default.
inline constexpr size_t kMaxJsonBytes = 4 << 20;

// At least one word.
absl::Status ReadRequest(const std::vector<std::string>& words,
                         google::protobuf::Message* request);

// The JSON that a word stands for: itself, or that of @FILE or of "-".
absl::StatusOr<std::string> ReadJson(const std::string& word);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_REQUEST_H_
