#include "tools/rpc_gateway/description.h"

#include "tools/cli/limit_flags.h"

namespace rpc_gateway {

cli::ProgramDescription DescribeRpcGateway() {
  return {
      .name = "rpc_gateway",
      .summary = "serves over gRPC what a host offers on a Unix socket",
      .flags =
          {{"socket", "PATH",
            "where the host listens; default: "
            "${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock"},
           {"listen", "HOST:PORT",
            "where to serve gRPC; port 0 is any that is free; default: "
            "127.0.0.1:50051"},
           {"tls-certificate", "FILE",
            "the gateway's certificate, PEM, and those that lead from it to a "
            "known one"},
           {"tls-key", "FILE", "its key"},
           {"tls-client-ca", "FILE",
            "clients need a certificate that one of these signed"},
           {"token-file", "FILE",
            "clients send the text in this file as \"authorization: Bearer "
            "TEXT\""},
           {"insecure", "",
            "listen beyond the loopback although clients need neither "
            "certificate nor token"},
           {"max-event-messages", "N",
            "messages of a client on one stream of events; default: 10000"},
           {"max-incoming-bytes", "N",
            "bytes of messages on their way in, of all clients together; "
            "default: 67108864"},
           {"keepalive", "SECONDS",
            "how long a client may be silent before it is asked whether it is "
            "there; default: 60"},
           {"keepalive-timeout", "SECONDS",
            "how long it may take to say so; default: 20"},
           {"idle-peer", "SECONDS",
            "how long the host is to know a client that has nothing under "
            "way; default: 30"},
           {"grace", "SECONDS",
            "how long calls may take after the signal to stop; default: 5"},
           cli::HelpFlag(),
           cli::VersionFlag()},
      .more_flags = {{"Limits of the gateway; those of the host hold beside "
                      "them for each client",
                      cli::DescribeLimits(kLimits)}},
      .details =
          "The gateway runs until SIGINT, SIGTERM, SIGQUIT or SIGHUP; a "
          "second signal ends it at once. It serves on when the host "
          "goes, and waits for it to come back.",
      .exit_statuses = {{"0", "after a signal"},
                        {"1", "when it cannot listen"},
                        {"2", "wrong usage"},
                        {"128 and the signal's number",
                         "as a shell shows it, after a second signal"}},
  };
}

}  // namespace rpc_gateway
