#include "core/common/rpc/grpc/security.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>

#include "absl/strings/ascii.h"
#include "absl/strings/match.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"

namespace rpc::grpc {
namespace {

constexpr std::string_view kScheme = "Bearer ";

bool IsLoopback(std::string_view host) {
  in_addr address;
  return host == "localhost" || host == "[::1]" ||
         (inet_pton(AF_INET, std::string(host).c_str(), &address) == 1 &&
          ntohl(address.s_addr) >> 24 == 127);
}

// What gRPC calls sockets that have no port. A front listens at none of them.
bool IsScheme(std::string_view host) {
  return host == "unix" || host == "unix-abstract" || host == "vsock";
}

// gRPC carries no other bytes as text.
bool IsOfAToken(char c) {
  return absl::ascii_isascii(static_cast<unsigned char>(c)) &&
         absl::ascii_isprint(static_cast<unsigned char>(c));
}

absl::Status CheckParts(const Security& security) {
  if (security.tls_certificate.empty() != security.tls_key.empty()) {
    return absl::InvalidArgumentError(
        "a TLS certificate and its key go together");
  }
  if (!security.tls_client_ca.empty() && !security.has_tls()) {
    return absl::InvalidArgumentError(
        "a CA of clients needs a TLS certificate of our own");
  }
  if (!std::ranges::all_of(security.token, IsOfAToken)) {
    return absl::InvalidArgumentError(
        "the token has characters that no client can send: it is one line of "
        "printable ASCII");
  }
  return absl::OkStatus();
}

}  // namespace

absl::Status Check(const Security& security, std::string_view address) {
  absl::Status status = CheckParts(security);
  if (!status.ok()) {
    return status;
  }
  const size_t colon = address.rfind(':');
  const std::string_view host =
      address.substr(0, colon == std::string_view::npos ? 0 : colon);
  const bool has_brackets = absl::StartsWith(host, "[");
  int port = 0;
  if (host.empty() || IsScheme(host) ||
      has_brackets != absl::EndsWith(host, "]") ||
      (!has_brackets && absl::StrContains(host, ':')) ||
      !absl::SimpleAtoi(address.substr(colon + 1), &port) || port < 0 ||
      port > 65'535) {
    return absl::InvalidArgumentError(absl::StrCat(
        "'", address, "' is no HOST:PORT; an IPv6 host stands in brackets"));
  }
  if (security.insecure || security.knows_clients() || IsLoopback(host)) {
    return absl::OkStatus();
  }
  return absl::PermissionDeniedError(absl::StrCat(
      address,
      " is beyond the loopback, where anybody could come: it takes a CA of "
      "clients or a token, or to be told that it may be insecure"));
}

bool Admits(const Security& security, std::string_view authorization) {
  if (security.token.empty()) {
    return true;
  }
  if (!absl::StartsWithIgnoreCase(authorization, kScheme)) {
    return false;
  }
  authorization.remove_prefix(kScheme.size());
  if (authorization.size() != security.token.size()) {
    return false;
  }
  unsigned char difference = 0;
  for (size_t i = 0; i < authorization.size(); ++i) {
    difference |= static_cast<unsigned char>(authorization[i]) ^
                  static_cast<unsigned char>(security.token[i]);
  }
  return difference == 0;
}

}  // namespace rpc::grpc
