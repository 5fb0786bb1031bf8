#include "tools/rpcctl/prometheus_text.h"

#include <google/protobuf/util/time_util.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "absl/strings/str_cat.h"

namespace rpcctl {
namespace {

using google::protobuf::util::TimeUtil;
using rpc::status::Connection;
using rpc::status::Question;
using rpc::status::Refusals;
using rpc::status::StatusReport;

// The two lines before the figures of `name`.
std::string Heading(std::string_view name,
                    std::string_view type,
                    std::string_view help) {
  return absl::StrCat("# HELP ", name, " ", help, "\n# TYPE ", name, " ", type,
                      "\n");
}

template <typename Figure>
std::string Gauge(std::string_view name, std::string_view help, Figure figure) {
  return absl::StrCat(Heading(name, "gauge", help), name, " ", figure, "\n");
}

double SecondsOfOldestQuestion(const StatusReport& report) {
  int64_t longest = 0;
  for (const Connection& connection : report.connections()) {
    for (const Question& question : connection.oldest_questions()) {
      longest =
          std::max(longest, TimeUtil::DurationToMilliseconds(question.age()));
    }
  }
  return static_cast<double>(longest) / 1000;
}

// The names of limits are identifiers, so they need no escapes.
std::string RefusalsText(const StatusReport& report) {
  constexpr std::string_view kName = "torvane_refusals_total";
  std::string text = Heading(kName, "counter",
                             "How often a limit has made the server refuse "
                             "something.");
  for (const Refusals& refusals : report.refusals()) {
    absl::StrAppend(&text, kName, "{limit=\"", refusals.limit(), "\"} ",
                    refusals.count(), "\n");
  }
  return text;
}

}  // namespace

std::string PrometheusText(const StatusReport& report) {
  constexpr std::string_view kRefused = "torvane_messages_refused_total";
  return absl::StrCat(
      Gauge("torvane_connections", "Clients that are connected.",
            report.connections_size()),
      Gauge("torvane_calls_in_flight", "Calls that are not completed.",
            report.total().calls_in_flight()),
      Gauge("torvane_streams", "Streams that are open.",
            report.total().streams()),
      Gauge("torvane_subscriptions", "Windows that streams are subscribed to.",
            report.total().subscriptions()),
      Gauge("torvane_pending_questions",
            "Questions that wait for a client's answer.",
            report.total().pending_questions()),
      Gauge("torvane_oldest_question_seconds",
            "How long the oldest of these has waited.",
            SecondsOfOldestQuestion(report)),
      Gauge("torvane_queued_bytes", "Bytes that wait to be written to clients.",
            report.total().queued_bytes()),
      RefusalsText(report),
      Heading(kRefused, "counter",
              "Messages of clients that their streams were not given."),
      kRefused, " ", report.messages_refused(), "\n");
}

}  // namespace rpcctl
