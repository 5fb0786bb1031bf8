// A host whose clients are killed, stopped and slowed down at random while it
// asks them questions, publishes events and answers calls; and which records
// how every question ends.
//
//   soak::HostOptions options;
//   options.program = "/path/to/soak";
//   options.questions = 100'000;
//   const soak::Outcome outcome = soak::RunHost(options);
//   EXPECT_EQ(outcome.lost, 0u);
//
// The seed and the order in which questions settle decide what it does to which
// client, never the clock. Since only questions that settle make it act, it
// never stops more than half of its clients.
//
// Ownership: nothing outlives RunHost(); no client process does, either.
//
// Sequence: one thread, which runs a loop of its own. One at a time in a
// process, since streams have process-wide registries.
//
// Failure: what cannot be set up, or a client that ends by itself, ends the
// process with a record.

#ifndef TOOLS_SOAK_SOAK_HOST_H_
#define TOOLS_SOAK_SOAK_HOST_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace soak {

struct HostOptions {
  // The program that is a client when it is started with "--client".
  std::string program;

  // How many clients there are at a time.
  size_t clients = 16;

  uint64_t seed = 1;

  // The end: so many questions asked, or so much time gone, whichever comes
  // first. One must be set.
  std::optional<uint64_t> questions;
  std::optional<std::chrono::seconds> duration;

  // Every fourth question is given up after this time, if set. Others wait for
  // as long as their client lives.
  std::optional<std::chrono::milliseconds> patience;
};

struct Outcome {
  // Done to clients.
  uint64_t clients_started = 0;
  uint64_t clients_slow = 0;
  uint64_t kills = 0;
  uint64_t kills_with_questions_pending = 0;
  uint64_t stops = 0;
  uint64_t continues = 0;

  // Questions, by how they ended. Lost ones never ended and doubled ones ended
  // more than once: both must be zero.
  uint64_t asked = 0;
  uint64_t answered = 0;
  uint64_t declined = 0;
  uint64_t cancelled = 0;
  uint64_t too_late = 0;
  uint64_t lost = 0;
  uint64_t doubled = 0;
  // Answers to another question than the one that they came for. Must be zero.
  uint64_t wrong = 0;

  // What clients have counted themselves. This includes what the host never
  // heard of, because the client was killed.
  uint64_t answers_sent = 0;
  uint64_t questions_declined = 0;
  uint64_t events_received = 0;
  uint64_t calls_succeeded = 0;
  uint64_t calls_failed = 0;

  uint64_t events_published = 0;
  uint64_t connections = 0;

  // Resident memory of the host, in bytes, before the first client came and
  // when the last one was gone.
  uint64_t memory_at_start = 0;
  uint64_t memory_at_end = 0;

  // Whether every question ended exactly once, and with its own answer if any.
  bool ok() const { return lost == 0 && doubled == 0 && wrong == 0; }
};

Outcome RunHost(const HostOptions& options);

}  // namespace soak

#endif  // TOOLS_SOAK_SOAK_HOST_H_
