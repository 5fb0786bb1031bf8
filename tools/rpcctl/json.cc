#include "tools/rpcctl/json.h"

#include <google/protobuf/util/json_util.h>

#include <string_view>

#include "absl/strings/str_cat.h"
#include "absl/strings/strip.h"
#include "tools/cli/printable.h"

namespace rpcctl {

absl::Status FromJson(const std::string& json,
                      google::protobuf::Message* message) {
  const auto status =
      google::protobuf::util::JsonStringToMessage(json, message);
  if (status.ok())
    return absl::OkStatus();
  const std::string type = message->GetDescriptor()->DebugString();
  return absl::InvalidArgumentError(absl::StrCat(
      "The JSON does not fit: ",
      std::string_view(status.message().data(), status.message().size()),
      "\nExpected:\n", absl::StripSuffix(type, "\n")));
}

std::string ToJson(const google::protobuf::Message& message) {
  google::protobuf::util::JsonPrintOptions options;
  options.always_print_primitive_fields = true;
  std::string json;
  const auto status =
      google::protobuf::util::MessageToJsonString(message, &json, options);
  // Fails only for Any, and for well-known types that are out of range.
  return cli::Printable(status.ok() ? json : message.ShortDebugString());
}

}  // namespace rpcctl
