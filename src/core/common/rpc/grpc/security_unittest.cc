#include "core/common/rpc/grpc/security.h"

#include <gtest/gtest.h>

namespace rpc::grpc {
namespace {

Security WithToken() {
  Security security;
  security.token = "secret";
  return security;
}

Security WithTls(const char* certificate, const char* key, const char* ca) {
  Security security;
  security.tls_certificate = certificate;
  security.tls_key = key;
  security.tls_client_ca = ca;
  return security;
}

Security Insecure() {
  Security security;
  security.insecure = true;
  return security;
}

TEST(Security, TheLoopbackNeedsNone) {
  for (const char* address :
       {"127.0.0.1:0", "127.255.0.3:65535", "localhost:50051", "[::1]:50051"}) {
    EXPECT_EQ(Check({}, address), absl::OkStatus()) << address;
  }
}

TEST(Security, BeyondTheLoopbackClientsHaveToProveWhoTheyAre) {
  for (const char* address :
       {"0.0.0.0:50051", "[::]:50051", "192.168.0.1:1", "126.0.0.1:1",
        "128.0.0.1:1", "127.example:1", "example.org:50051", "[::2]:1"}) {
    EXPECT_EQ(Check(WithToken(), address), absl::OkStatus()) << address;
    EXPECT_EQ(Check(WithTls("certificate", "key", "ca"), address),
              absl::OkStatus())
        << address;
    EXPECT_EQ(Check(Insecure(), address), absl::OkStatus()) << address;
    EXPECT_TRUE(absl::IsPermissionDenied(
        Check(WithTls("certificate", "key", ""), address)))
        << address;
    EXPECT_TRUE(absl::IsPermissionDenied(Check({}, address))) << address;
  }
}

TEST(Security, WhatIsNoHostAndPortIsRefused) {
  for (const char* address :
       {"", "50051", ":50051", "localhost", "localhost:", "localhost:x",
        "localhost:65536", "localhost:-1", "::1:50051", "[::1:50051",
        "unix:/tmp/socket", "unix:5"}) {
    EXPECT_FALSE(Check({}, address).ok()) << address;
  }
  for (const char* address : {"unix:5", "unix-abstract:5", "vsock:5"}) {
    EXPECT_TRUE(absl::IsInvalidArgument(Check(Insecure(), address))) << address;
  }
  EXPECT_EQ(Check(Insecure(), "unix:/tmp/socket"),
            absl::InvalidArgumentError(
                "'unix:/tmp/socket' is no HOST:PORT; an IPv6 host stands in "
                "brackets"));
}

TEST(Security, PartsOfTlsThatDoNotGoAloneAreRefused) {
  EXPECT_EQ(
      Check(WithTls("certificate", "", ""), "localhost:1"),
      absl::InvalidArgumentError("a TLS certificate and its key go together"));
  EXPECT_EQ(
      Check(WithTls("", "key", ""), "localhost:1"),
      absl::InvalidArgumentError("a TLS certificate and its key go together"));
  EXPECT_EQ(Check(WithTls("", "", "ca"), "localhost:1"),
            absl::InvalidArgumentError(
                "a CA of clients needs a TLS certificate of our own"));
}

TEST(Security, ATokenThatNoClientCanSendIsRefused) {
  Security security;
  for (const char* token :
       {"two\nlines", "a\ttab", "\x7f", "gr\xc3\xbc\xc3\x9f"}) {
    security.token = token;
    EXPECT_EQ(Check(security, "localhost:1"),
              absl::InvalidArgumentError(
                  "the token has characters that no client can send: it is one "
                  "line of printable ASCII"))
        << token;
  }
  security.token = "two words ~!";
  EXPECT_EQ(Check(security, "localhost:1"), absl::OkStatus());
}

TEST(Security, OnlyTheTokenIsAdmitted) {
  const Security security = WithToken();
  EXPECT_TRUE(Admits(security, "Bearer secret"));
  EXPECT_TRUE(Admits(security, "bearer secret"));
  for (const char* wrong : {"", "secret", "Bearer", "Bearer ", "Bearer Secret",
                            "Bearer secre", "Bearer secret ", "Basic secret"}) {
    EXPECT_FALSE(Admits(security, wrong)) << wrong;
  }
  EXPECT_TRUE(Admits({}, ""));
}

}  // namespace
}  // namespace rpc::grpc
