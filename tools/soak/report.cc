#include "tools/soak/report.h"

#include <chrono>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"

namespace soak {
namespace {

std::string Line(std::string_view what, const std::string& figures) {
  return absl::StrFormat("%-11s  %s\n", what, figures);
}

std::string Milliseconds(SettlingTimes::Duration duration) {
  return absl::StrFormat(
      "%.2f ms", std::chrono::duration<double, std::milli>(duration).count());
}

std::string Settled(const SettlingTimes& times) {
  if (times.count() == 0)
    return "no client has died with questions pending";
  return absl::StrCat("after ", times.count(), " deaths: p50 ",
                      Milliseconds(times.Within(0.5)), ", p99 ",
                      Milliseconds(times.Within(0.99)), ", max ",
                      Milliseconds(times.longest()));
}

}  // namespace

std::string Report(const Outcome& outcome) {
  return absl::StrCat(
      Line("clients", absl::StrCat(outcome.clients_started, " started, ",
                                   outcome.clients_slow, " of them slow, ",
                                   outcome.connections, " connections")),
      Line("signals",
           absl::StrCat(outcome.kills, " kills, ",
                        outcome.kills_with_questions_pending,
                        " of them with questions pending, ", outcome.stops,
                        " stops, ", outcome.continues, " continues")),
      Line("questions",
           absl::StrCat(outcome.asked, " asked, ", outcome.answered,
                        " answered, ", outcome.declined, " declined, ",
                        outcome.cancelled, " cancelled, ", outcome.too_late,
                        " too late")),
      Line("clients'", absl::StrCat(outcome.answers_sent, " answers sent, ",
                                    outcome.questions_declined, " declined")),
      Line("events", absl::StrCat(outcome.events_published, " published, ",
                                  outcome.events_received, " received")),
      Line("calls", absl::StrCat(outcome.calls_succeeded, " succeeded, ",
                                 outcome.calls_failed, " failed")),
      Line("settled", Settled(outcome.settling)),
      Line("memory",
           absl::StrCat(outcome.memory_at_start >> 10, " KiB at the start, ",
                        outcome.memory_at_end >> 10, " KiB at the end")),
      Line("descriptors",
           absl::StrCat(outcome.descriptors_at_start, " at the start, ",
                        outcome.descriptors_at_end, " at the end")),
      Line("answers", absl::StrCat(outcome.lost, " lost, ", outcome.doubled,
                                   " doubled, ", outcome.wrong, " wrong")));
}

}  // namespace soak
