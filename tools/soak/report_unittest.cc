#include "tools/soak/report.h"

#include <gtest/gtest.h>

#include <chrono>

namespace soak {
namespace {

// Each figure is another one, so that none can stand in for another.
TEST(ReportTest, NamesEveryFigureOnce) {
  Outcome outcome;
  outcome.clients_started = 101;
  outcome.clients_slow = 102;
  outcome.connections = 103;
  outcome.kills = 104;
  outcome.kills_with_questions_pending = 105;
  outcome.stops = 106;
  outcome.continues = 107;
  outcome.asked = 108;
  outcome.answered = 109;
  outcome.declined = 110;
  outcome.cancelled = 111;
  outcome.too_late = 112;
  outcome.answers_sent = 113;
  outcome.questions_declined = 114;
  outcome.events_published = 115;
  outcome.events_received = 116;
  outcome.calls_succeeded = 117;
  outcome.calls_failed = 118;
  outcome.memory_at_start = 119 << 10;
  outcome.memory_at_end = 120 << 10;
  outcome.descriptors_at_start = 121;
  outcome.descriptors_at_end = 122;
  outcome.lost = 123;
  outcome.doubled = 124;
  outcome.wrong = 125;
  for (int i = 1; i <= 100; ++i)
    outcome.settling.Add(std::chrono::microseconds(20 * i));
  outcome.settling.Add(std::chrono::microseconds(12'344));

  EXPECT_EQ(Report(outcome),
            R"(clients      101 started, 102 of them slow, 103 connections
signals      104 kills, 105 of them with questions pending, 106 stops, 107 continues
questions    108 asked, 109 answered, 110 declined, 111 cancelled, 112 too late
clients'     113 answers sent, 114 declined
events       115 published, 116 received
calls        117 succeeded, 118 failed
settled      after 101 deaths: p50 1.02 ms, p99 2.00 ms, max 12.34 ms
memory       119 KiB at the start, 120 KiB at the end
descriptors  121 at the start, 122 at the end
answers      123 lost, 124 doubled, 125 wrong
)");
}

TEST(ReportTest, SaysThatNoClientHasDied) {
  EXPECT_NE(Report({}).find("\nsettled      no client has died with questions "
                            "pending\n"),
            std::string::npos);
}

}  // namespace
}  // namespace soak
