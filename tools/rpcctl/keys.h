// What a stream is to be subscribed to, as a user types it.
//
// Ownership: the messages are the caller's. Sequence: that of the session.
// Failure: has been said on standard error when it is not kSuccess.

#ifndef TOOLS_RPCCTL_KEYS_H_
#define TOOLS_RPCCTL_KEYS_H_

#include <google/protobuf/descriptor.h>

#include "tools/rpcctl/commands.h"

namespace rpcctl {

// The keys that the words say in JSON, at least one. Of a key that has a single
// field its value alone may stand there: 7 instead of {"value": 7}.
ExitCode ParseKeys(Session& session,
                   const google::protobuf::MethodDescriptor& method,
                   const Arguments& words,
                   Keys* keys);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_KEYS_H_
