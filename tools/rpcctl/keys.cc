#include "tools/rpcctl/keys.h"

#include <utility>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/dynamic_streams.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

using google::protobuf::Descriptor;

// The whole JSON of a key.
std::string WholeJson(const Descriptor& type, const std::string& word) {
  const bool is_whole =
      absl::StartsWith(word, "{") || type.field_count() != 1 ||
      type.well_known_type() != Descriptor::WELLKNOWNTYPE_UNSPECIFIED;
  return is_whole
             ? word
             : absl::StrCat("{\"", type.field(0)->name(), "\": ", word, "}");
}

}  // namespace

ExitCode ParseKeys(Session& session,
                   const google::protobuf::MethodDescriptor& method,
                   const Arguments& words,
                   Keys* keys) {
  const Descriptor* type = rpc::transport::KeyTypeOf(method);
  if (type == nullptr) {
    return Fail(kCallFailed,
                absl::StrCat(method.full_name(),
                             " has no key that one could subscribe to."));
  }
  if (words.empty())
    return Fail(kUsage, "Name at least one key.");
  for (const std::string& word : words) {
    auto key = session.NewMessage(type);
    if (absl::Status json = FromJson(WholeJson(*type, word), key.get());
        !json.ok()) {
      return Fail(kUsage,
                  absl::StrCat("'", word, "' is no key: ", json.message()));
    }
    keys->push_back(std::move(key));
  }
  return kSuccess;
}

}  // namespace rpcctl
