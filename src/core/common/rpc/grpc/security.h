// Who may use a gRPC front.
//
// Without any of this everybody who reaches its port may, so such a front
// listens on the loopback only: there everybody is whoever may run programs on
// this machine. Beyond the loopback clients have to prove who they are, by a
// certificate or a token.
//
// Ownership: values. Sequence: any.
//
// Failure: Check() says what is missing.

#ifndef CORE_COMMON_RPC_GRPC_SECURITY_H_
#define CORE_COMMON_RPC_GRPC_SECURITY_H_

#include <string>
#include <string_view>

#include "absl/status/status.h"

namespace rpc::grpc {

struct Security {
  // PEM texts: the front's certificate, with those that lead from it to a known
  // one, and its key. Both or neither.
  std::string tls_certificate;
  std::string tls_key;

  // PEM text: clients need a certificate that one of these has signed. Only
  // with a certificate of the front's own.
  std::string tls_client_ca;

  // Clients send it with each call, as "authorization: Bearer TOKEN", so it is
  // printable ASCII. It goes over the network as it is where there is no TLS.
  std::string token;

  // Listen wherever one is told to, whoever may come.
  bool insecure = false;

  bool has_tls() const { return !tls_certificate.empty(); }
  bool knows_clients() const {
    return !tls_client_ca.empty() || !token.empty();
  }
};

// Whether a front may listen at `address`, which is "HOST:PORT": for certain if
// the host is localhost, 127.0.0.0/8 or [::1], and else if clients have to
// prove who they are. INVALID_ARGUMENT for what cannot be, PERMISSION_DENIED
// for what would let everybody in.
absl::Status Check(const Security& security, std::string_view address);

// Whether a client that sends this value of "authorization" may come in. Takes
// as long for one wrong token as for another of the same length.
bool Admits(const Security& security, std::string_view authorization);

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_SECURITY_H_
