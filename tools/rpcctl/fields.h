// Messages as a person types them without JSON: a word for each field.
//
//   title=Inbox
//   bounds.x=-10 bounds.width=800      fields of a message within
//   kind=close visible=false           an enum's value by its name, a truth
//   ids=1 ids=2                        a repeated field gets one more each time
//
// A name is that of the proto file or that of JSON. Of an enum's value the part
// will do that not all of them have in common, in lower case and with dashes:
// close for KIND_CLOSE.
//
// Ownership: the message is the caller's.
//
// Sequence: any one.
//
// Failure: INVALID_ARGUMENT with a text for the user, which suggests the
// nearest name; the message is then filled in part.

#ifndef TOOLS_RPCCTL_FIELDS_H_
#define TOOLS_RPCCTL_FIELDS_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <string>
#include <string_view>
#include <vector>

#include "absl/status/status.h"

namespace rpcctl {

// Whether the word begins with a name and "=", as no JSON does and no URL.
bool IsFieldWord(std::string_view word);

// Sets what the words say. No field may be set twice.
absl::Status SetFields(const std::vector<std::string>& words,
                       google::protobuf::Message* message);

// The name of an enum's value as SetFields() reads it: "close".
std::string ShortName(const google::protobuf::EnumValueDescriptor& value);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_FIELDS_H_
