// Serves over gRPC what a host offers on a Unix socket.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "absl/status/status.h"
#include "absl/strings/ascii.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/front.h"
#include "core/common/rpc/loop/loop.h"
#include "tools/cli/flags.h"
#include "tools/cli/limit_flags.h"
#include "tools/cli/line_writer.h"
#include "tools/cli/printable.h"
#include "tools/cli/record_writer.h"
#include "tools/cli/socket_path.h"
#include "tools/cli/stop_signals.h"
#include "tools/rpc_gateway/description.h"
#include "tools/rpc_gateway/grpc_log.h"
#include "tools/rpc_gateway/host_backend.h"
#include "tools/rpc_gateway/host_watch.h"

namespace rpc_gateway {
namespace {

constexpr int kUsage = 2;

struct Options {
  std::string socket = cli::DefaultSocketPath();
  std::string listen = "127.0.0.1:50051";
  std::string tls_certificate;
  std::string tls_key;
  std::string tls_client_ca;
  std::string token_file;
  std::chrono::milliseconds grace{5'000};
  rpc::grpc::FrontOptions front;
};

int Fail(int exit_code, std::string_view text) {
  cli::LineWriter(STDERR_FILENO, "line")
      .Write(cli::PrintableLines(absl::StrCat("rpc_gateway: ", text)));
  return exit_code;
}

// Leaves `text` alone where no path is given.
absl::Status ReadFile(const std::string& path, std::string& text) {
  if (path.empty()) {
    return absl::OkStatus();
  }
  // Of a folder nothing can be read: the stream notes that, where its iterators
  // throw.
  std::ifstream file(path, std::ios::binary);
  char bytes[4096];
  do {
    file.read(bytes, sizeof(bytes));
    text.append(bytes, static_cast<size_t>(file.gcount()));
  } while (file);
  if (file.bad() || !file.is_open()) {
    return absl::NotFoundError(absl::StrCat("cannot read ", path));
  }
  if (text.empty()) {
    return absl::InvalidArgumentError(absl::StrCat(path, " is empty"));
  }
  return absl::OkStatus();
}

absl::Status ReadSecurity(const Options& options,
                          rpc::grpc::Security& security) {
  for (const auto& [path, text] :
       {std::pair{&options.tls_certificate, &security.tls_certificate},
        {&options.tls_key, &security.tls_key},
        {&options.tls_client_ca, &security.tls_client_ca},
        {&options.token_file, &security.token}}) {
    absl::Status status = ReadFile(*path, *text);
    if (!status.ok()) {
      return status;
    }
  }
  security.token = absl::StripAsciiWhitespace(security.token);
  if (!options.token_file.empty() && security.token.empty()) {
    return absl::InvalidArgumentError(
        absl::StrCat(options.token_file, " has no token"));
  }
  return absl::OkStatus();
}

class Gateway {
 public:
  explicit Gateway(const Options& options)
      : options_(options),
        backend_(loop_, options.socket, Connection("")),
        front_(loop_, backend_, options.front) {}

  int Run() {
    stop_signals_.emplace(loop_, [this] { Stop(); });
    const absl::StatusOr<int> port = front_.Listen(options_.listen);
    if (!port.ok()) {
      return Fail(EXIT_FAILURE, port.status().message());
    }
    watch_.emplace(loop_, options_.socket, Connection("rpc_gateway"), front_);
    const std::string host =
        options_.listen.substr(0, options_.listen.rfind(':'));
    output_.Write(absl::StrCat("rpc_gateway: ready at ", host, ":", *port));
    loop_.RunUntil([this] { return stopped_; });
    return EXIT_SUCCESS;
  }

 private:
  rpc::transport::ReconnectingOptions Connection(const std::string& name) {
    rpc::transport::ReconnectingOptions options;
    options.client.limits = options_.front.limits;
    options.client.name = name;
    options.longest_pause = std::chrono::seconds(1);
    return options;
  }

  void Stop() {
    watch_.reset();
    front_.Stop(options_.grace, [this] { stopped_ = true; });
  }

  const Options options_;
  rpc::loop::Loop loop_;
  cli::LineWriter output_{STDOUT_FILENO, "line"};
  HostBackend backend_;
  rpc::grpc::Front front_;
  std::optional<HostWatch> watch_;
  std::optional<cli::StopSignals> stop_signals_;
  bool stopped_ = false;
};

int Main(int argc, const char* const* argv) {
  Options options;
  bool help = false;
  bool version = false;
  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddSwitch("version", &version);
  flags.AddText("socket", &options.socket);
  flags.AddText("listen", &options.listen);
  flags.AddText("tls-certificate", &options.tls_certificate);
  flags.AddText("tls-key", &options.tls_key);
  flags.AddText("tls-client-ca", &options.tls_client_ca);
  flags.AddText("token-file", &options.token_file);
  flags.AddSwitch("insecure", &options.front.security.insecure);
  flags.AddSize("max-event-messages", 1, 1'000'000'000,
                &options.front.max_event_messages);
  flags.AddSize("max-incoming-bytes", 1, 1'000'000'000'000,
                &options.front.max_incoming_bytes);
  flags.AddSeconds("keepalive", &options.front.keepalive_time);
  flags.AddSeconds("keepalive-timeout", &options.front.keepalive_timeout);
  flags.AddSeconds("idle-peer", &options.front.idle_peer);
  flags.AddSeconds("grace", &options.grace);
  cli::AddLimitFlags(flags, &options.front.limits, kLimits);
  const auto arguments = flags.Parse(argc, argv);
  if (!arguments.ok()) {
    return Fail(kUsage, absl::StrCat(arguments.status().message(),
                                     " 'rpc_gateway --help' says more."));
  }
  if (help || version) {
    const cli::ProgramDescription program = DescribeRpcGateway();
    std::fputs((help ? cli::Help(program) : cli::VersionLine(program)).c_str(),
               stdout);
    return EXIT_SUCCESS;
  }
  if (!arguments->empty()) {
    return Fail(kUsage,
                "There are only flags. 'rpc_gateway --help' lists them.");
  }
  // It keeps nobody waiting itself, and only may not be above the other.
  rpc::serving::Limits& limits = options.front.limits;
  limits.busy_outbox_bytes =
      std::min(limits.busy_outbox_bytes, limits.max_outbox_bytes);
  if (const absl::Status fault = cli::CheckLimits(options.front.limits);
      !fault.ok()) {
    return Fail(kUsage, fault.message());
  }
  if (options.front.max_incoming_bytes < limits.max_client_frame_bytes) {
    return Fail(kUsage,
                "--max-incoming-bytes has no room for a message of "
                "--max-client-frame-bytes.");
  }
  if (const absl::Status read = ReadSecurity(options, options.front.security);
      !read.ok()) {
    return Fail(EXIT_FAILURE, read.message());
  }
  cli::RecordWriter& records = cli::WriteRecordsTo(STDERR_FILENO);
  RecordGrpcLog();
  const int exit_code = Gateway(options).Run();
  records.SayWhatWasLeftOut();
  return exit_code;
}

}  // namespace
}  // namespace rpc_gateway

int main(int argc, char* argv[]) {
  return rpc_gateway::Main(argc, argv);
}
