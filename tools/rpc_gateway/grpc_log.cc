#include "tools/rpc_gateway/grpc_log.h"

#include <grpc/support/log.h>

#include "absl/strings/ascii.h"
#include "base/logging.h"

namespace rpc_gateway {
namespace {

// gRPC knows no warnings.
logging::LogSeverity SeverityOf(gpr_log_severity severity) {
  return severity == GPR_LOG_SEVERITY_ERROR ? logging::LOGGING_ERROR
                                            : logging::LOGGING_INFO;
}

void Record(gpr_log_func_args* args) {
  logging::LogMessage(args->file, args->line, SeverityOf(args->severity))
          .stream()
      << absl::StripLeadingAsciiWhitespace(args->message);
}

}  // namespace

void RecordGrpcLog() {
  gpr_set_log_function(Record);
}

}  // namespace rpc_gateway
