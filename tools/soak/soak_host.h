// A host that kills, stops and slows down its clients at random while it asks
// them questions, publishes events and answers calls. It records how every
// question ends.
//
//   soak::HostOptions options;
//   options.program = "/path/to/soak";
//   options.questions = 100'000;
//   const soak::Outcome outcome = soak::RunHost(options);
//   EXPECT_EQ(outcome.lost, 0u);
//
// What it does to which client depends only on the seed and on the order in
// which questions settle, never on the clock. It acts only when questions
// settle, so it never stops more than half of its clients.
//
// Ownership: nothing outlives RunHost(), no client process either.
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

#include "tools/soak/settling_times.h"

namespace soak {

struct HostOptions {
  // The program to start as a client, with the flag "--client".
  std::string program;

  // How many clients there are at a time.
  size_t clients = 16;

  uint64_t seed = 1;

  // The soak ends after this many questions or this much time, whichever comes
  // first. At least one must be set.
  std::optional<uint64_t> questions;
  std::optional<std::chrono::seconds> duration;

  // If set, about one question in four is cancelled after this time. The others
  // wait for as long as their client lives.
  std::optional<std::chrono::milliseconds> patience;
};

struct Outcome {
  // What was done to clients.
  uint64_t clients_started = 0;
  uint64_t clients_slow = 0;
  uint64_t kills = 0;
  uint64_t kills_with_questions_pending = 0;
  uint64_t stops = 0;
  uint64_t continues = 0;

  // Questions, by how they ended. Lost ones never ended, doubled ones ended
  // more than once: both must be zero.
  uint64_t asked = 0;
  uint64_t answered = 0;
  uint64_t declined = 0;
  uint64_t cancelled = 0;
  uint64_t too_late = 0;
  uint64_t lost = 0;
  uint64_t doubled = 0;
  // Answers that belong to another question. Must be zero.
  uint64_t wrong = 0;

  // Counted by the clients. Includes messages that the host never received,
  // because the client was killed.
  uint64_t answers_sent = 0;
  uint64_t questions_declined = 0;
  uint64_t events_received = 0;
  uint64_t calls_succeeded = 0;
  uint64_t calls_failed = 0;

  uint64_t events_published = 0;
  uint64_t connections = 0;

  // How long it took from the SIGKILL of a client until the last question that
  // was pending for it had ended. Not of those that are killed together when
  // the soak ends, which would wait for each other.
  SettlingTimes settling = {};

  // Resident memory of the host, in bytes, and its open descriptors, before the
  // first client came and when the last one was gone.
  uint64_t memory_at_start = 0;
  uint64_t memory_at_end = 0;
  size_t descriptors_at_start = 0;
  size_t descriptors_at_end = 0;

  // Whether every question ended exactly once, and with its own answer if any.
  bool ok() const { return lost == 0 && doubled == 0 && wrong == 0; }
};

Outcome RunHost(const HostOptions& options);

}  // namespace soak

#endif  // TOOLS_SOAK_SOAK_HOST_H_
