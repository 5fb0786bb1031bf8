#include "core/common/rpc/serving/client_record.h"

#include <cstddef>

#include "absl/strings/escaping.h"
#include "absl/strings/str_cat.h"
#include "base/logging.h"

namespace rpc::serving {
namespace {

// Bytes of a client's name that are shown.
constexpr size_t kMaxNameBytes = 64;

std::string Named(const std::string& name, const std::string& process) {
  if (name.empty()) {
    return process;
  }
  return absl::StrCat(name, " (", process, ")");
}

}  // namespace

std::string Describe(const ClientProcess& process) {
  return absl::StrCat("pid ", process.pid, ", user ", process.user);
}

ClientRecord::ClientRecord(const ClientProcess& process,
                           Counters& counters,
                           const ClientTrace& trace)
    : process_(process), counters_(counters), trace_(trace) {
  set_name("");
}

void ClientRecord::set_name(const std::string& name) {
  name_ = absl::CHexEscape(name.substr(0, kMaxNameBytes));
  peer_ = Named(name_, absl::StrCat("pid ", process_.pid));
  who_ = Named(name_, Describe(process_));
}

void ClientRecord::Report(ConnectionReport& report) const {
  report.pid = process_.pid;
  report.user = process_.user;
  report.name = name_;
}

absl::Status ClientRecord::NoteLimit(uint64_t LimitHits::*limit,
                                     const std::string& text) {
  absl::Status why = absl::ResourceExhaustedError(text);
  ++(counters_.limit_hits.*limit);
  if (++(refusals_.*limit) == 1) {
    RecordRefusal(why);
  }
  return why;
}

absl::Status ClientRecord::NoteRefusedMessage(const std::string& text) {
  absl::Status why = absl::InvalidArgumentError(text);
  ++counters_.messages_refused;
  if (++messages_refused_ == 1) {
    RecordRefusal(why);
  }
  return why;
}

void ClientRecord::RecordRefusal(const absl::Status& why) const {
  LOG(WARNING) << "Refused a request of " << who_ << ": " << why;
}

void ClientRecord::OnClosed(const absl::Status& why) const {
  if (!absl::IsUnavailable(why)) {
    LOG(WARNING) << "Closed the connection of " << who_ << ": " << why;
  }
}

}  // namespace rpc::serving
