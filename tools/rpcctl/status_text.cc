#include "tools/rpcctl/status_text.h"

#include <google/protobuf/duration.pb.h>
#include <google/protobuf/util/time_util.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/time/time.h"
#include "tools/rpcctl/text_table.h"

namespace rpcctl {
namespace {

using google::protobuf::Duration;
using google::protobuf::util::TimeUtil;
using rpc::status::Connection;
using rpc::status::Load;
using rpc::status::Question;
using rpc::status::Refusals;
using rpc::status::StatusReport;

// "1m2.3s", cut to tenths of a second.
std::string ToText(const Duration& duration) {
  return absl::FormatDuration(absl::Trunc(
      absl::Milliseconds(TimeUtil::DurationToMilliseconds(duration)),
      absl::Milliseconds(100)));
}

struct PendingQuestion {
  uint64_t connection;
  const Question* question;
};

// The pending questions of all connections, the oldest first.
std::vector<PendingQuestion> OldestQuestions(const StatusReport& report) {
  std::vector<PendingQuestion> oldest;
  for (const Connection& connection : report.connections()) {
    for (const Question& question : connection.oldest_questions())
      oldest.push_back({connection.id(), &question});
  }
  std::stable_sort(
      oldest.begin(), oldest.end(),
      [](const PendingQuestion& one, const PendingQuestion& other) {
        return TimeUtil::DurationToNanoseconds(one.question->age()) >
               TimeUtil::DurationToNanoseconds(other.question->age());
      });
  return oldest;
}

std::string ConnectionsText(const StatusReport& report) {
  constexpr auto kRight = TextTable::kRight;
  TextTable table({{"ID", kRight},
                   {"CLIENT"},
                   {"PID", kRight},
                   {"UID", kRight},
                   {"FOR", kRight},
                   {"CALLS", kRight},
                   {"STREAMS", kRight},
                   {"QUESTIONS", kRight},
                   {"QUEUED BYTES", kRight}});
  const auto add = [&table](const TextTable::Row& who, const Load& load) {
    TextTable::Row row = who;
    for (const uint64_t figure :
         {uint64_t{load.calls_in_flight()}, uint64_t{load.streams()},
          uint64_t{load.pending_questions()}, load.queued_bytes()}) {
      row.push_back(absl::StrCat(figure));
    }
    table.AddRow(row);
  };
  for (const Connection& connection : report.connections()) {
    add({absl::StrCat(connection.id()), connection.name(),
         absl::StrCat(connection.pid()), absl::StrCat(connection.uid()),
         ToText(connection.age())},
        connection.load());
  }
  add({"", "total", "", "", ""}, report.total());
  return table.ToString();
}

std::string QuestionsText(const StatusReport& report) {
  const std::vector<PendingQuestion> oldest = OldestQuestions(report);
  if (oldest.empty())
    return "";
  TextTable table({{"PENDING QUESTION"},
                   {"WINDOW", TextTable::kRight},
                   {"CONNECTION", TextTable::kRight},
                   {"FOR", TextTable::kRight}});
  for (const auto& [connection, question] : oldest) {
    table.AddRow({question->method(),
                  absl::StrCat(question->browser_id().value()),
                  absl::StrCat(connection), ToText(question->age())});
  }
  std::string text = absl::StrCat("\n", table.ToString());
  if (const size_t pending = report.total().pending_questions();
      pending > oldest.size()) {
    absl::StrAppend(&text, "and ", pending - oldest.size(), " more\n");
  }
  return text;
}

std::string RefusalsText(const StatusReport& report) {
  TextTable table({{"LIMIT"}, {"REFUSALS", TextTable::kRight}});
  for (const Refusals& refusals : report.refusals())
    table.AddRow({refusals.limit(), absl::StrCat(refusals.count())});
  std::string text = absl::StrCat("\n", table.ToString());
  if (report.messages_refused() > 0)
    absl::StrAppend(&text, "refused messages: ", report.messages_refused(),
                    "\n");
  return text;
}

}  // namespace

std::string StatusText(const StatusReport& report) {
  return ConnectionsText(report) + QuestionsText(report) + RefusalsText(report);
}

}  // namespace rpcctl
