#include "core/common/rpc/transport/wire/rpc_status.h"

#include <cstddef>
#include <cstdint>

#include "absl/strings/str_cat.h"

namespace rpc::transport {
namespace {

// Bytes of a status text: a person reads it, and it must fit in any frame.
constexpr size_t kMaxTextBytes = 4096;

constexpr auto kLastCode =
    static_cast<int64_t>(absl::StatusCode::kUnauthenticated);

}  // namespace

absl::Status FromWire(const RpcStatus& status) {
  if (status.code() == 0) {
    return absl::OkStatus();
  }
  if (status.code() < 0 || status.code() > kLastCode) {
    return absl::UnknownError(
        absl::StrCat("status code ", status.code(), ": ", status.text()));
  }
  return absl::Status(static_cast<absl::StatusCode>(status.code()),
                      status.text());
}

void ToWire(const absl::Status& status, RpcStatus* wire) {
  const absl::string_view text = status.message().substr(0, kMaxTextBytes);
  wire->set_code(status.raw_code());
  wire->set_text(text.data(), text.size());
}

}  // namespace rpc::transport
