#include "core/common/rpc/status/status_service.h"

#include <google/protobuf/duration.pb.h>
#include <google/protobuf/util/time_util.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "core/common/rpc/serving/limit_table.h"

namespace rpc::status {
namespace {

using google::protobuf::util::TimeUtil;
using serving::ConnectionReport;
using serving::QuestionReport;

// The server's limits keep all counts far below the maximum of uint32_t.
uint32_t ToCount(size_t size) {
  return static_cast<uint32_t>(size);
}

void Describe(const QuestionReport& report, Question* question) {
  question->set_method(report.method);
  question->mutable_browser_id()->set_value(report.window);
  *question->mutable_age() =
      TimeUtil::NanosecondsToDuration(report.age.count());
}

void Describe(const ConnectionReport& report, Connection* connection) {
  connection->set_id(report.id);
  connection->set_pid(report.pid);
  connection->set_uid(report.user);
  connection->set_name(report.name);
  *connection->mutable_age() =
      TimeUtil::NanosecondsToDuration(report.age.count());
  Load* load = connection->mutable_load();
  load->set_calls_in_flight(ToCount(report.calls));
  load->set_streams(ToCount(report.streams));
  load->set_subscriptions(ToCount(report.subscriptions));
  load->set_pending_questions(ToCount(report.questions));
  load->set_queued_bytes(report.queued_bytes);
  for (const QuestionReport& question : report.oldest_questions) {
    Describe(question, connection->add_oldest_questions());
  }
}

void Add(const Load& load, Load* total) {
  total->set_calls_in_flight(total->calls_in_flight() + load.calls_in_flight());
  total->set_streams(total->streams() + load.streams());
  total->set_subscriptions(total->subscriptions() + load.subscriptions());
  total->set_pending_questions(total->pending_questions() +
                               load.pending_questions());
  total->set_queued_bytes(total->queued_bytes() + load.queued_bytes());
}

}  // namespace

StatusService::StatusService(TakeReport take_report)
    : take_report_(std::move(take_report)) {}

StatusService::~StatusService() = default;

void StatusService::GetStatus(google::protobuf::RpcController*,
                              const StatusRequest*,
                              StatusReport* response,
                              google::protobuf::Closure* done) {
  const serving::ServerReport report = take_report_();
  Load* total = response->mutable_total();
  for (const ConnectionReport& connection : report.connections) {
    Describe(connection, response->add_connections());
    Add(response->connections().rbegin()->load(), total);
  }
  for (const serving::LimitInfo& limit : serving::kLimitTable) {
    Refusals* refusals = response->add_refusals();
    refusals->set_limit(limit.name);
    refusals->set_count(report.counters.limit_hits.*limit.hits);
  }
  response->set_messages_refused(report.counters.messages_refused);
  done->Run();
}

}  // namespace rpc::status
