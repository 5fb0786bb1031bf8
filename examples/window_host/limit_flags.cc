#include "examples/window_host/limit_flags.h"

#include <chrono>
#include <cstddef>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"

namespace window_host {
namespace {

using rpc::transport::Limits;

struct SizeFlag {
  const char* name;
  size_t Limits::*limit;
  size_t minimum;
  size_t maximum;
  const char* meaning;
};

struct TimeFlag {
  const char* name;
  std::chrono::milliseconds Limits::*limit;
  const char* meaning;
};

constexpr size_t kLeastBytes = 1 << 10;
constexpr size_t kMostBytes = 1 << 30;
constexpr size_t kMostThings = 1'000'000;

constexpr SizeFlag kSizeFlags[] = {
    {"max-frame-bytes", &Limits::max_frame_bytes,
     rpc::transport::kMinFrameBytes, kMostBytes,
     "bytes of one frame from a client"},
    {"max-outbox-bytes", &Limits::max_outbox_bytes, kLeastBytes, kMostBytes,
     "bytes queued for a client when it is cut off"},
    {"busy-outbox-bytes", &Limits::busy_outbox_bytes, kLeastBytes, kMostBytes,
     "bytes queued for a client when reading pauses"},
    {"max-connections", &Limits::max_connections, 1, kMostThings,
     "clients at a time"},
    {"max-calls", &Limits::max_calls, 1, kMostThings,
     "calls in flight of one client"},
    {"max-streams", &Limits::max_streams, 1, kMostThings,
     "open streams of one client"},
    {"max-subscriptions", &Limits::max_subscriptions, 1, kMostThings,
     "windows that one client hears of or answers for"},
    {"max-subscription-bytes", &Limits::max_subscription_bytes, 1, kMostBytes,
     "bytes of a message that subscribes"},
    {"max-questions", &Limits::max_questions, 1, kMostThings,
     "questions that wait for one client"},
};

constexpr TimeFlag kTimeFlags[] = {
    {"handshake-timeout", &Limits::handshake_timeout,
     "for a new client to introduce itself"},
    {"goodbye-timeout", &Limits::goodbye_timeout,
     "for a goodbye to reach a client"},
    {"accept-pause", &Limits::accept_pause,
     "without accepting, when out of descriptors"},
};

double Seconds(std::chrono::milliseconds time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

void AddLimitFlags(cli::Flags& flags, Limits* limits) {
  for (const SizeFlag& flag : kSizeFlags)
    flags.AddSize(flag.name, flag.minimum, flag.maximum,
                  &(limits->*flag.limit));
  for (const TimeFlag& flag : kTimeFlags)
    flags.AddSeconds(flag.name, &(limits->*flag.limit));
}

absl::Status CheckLimits(const Limits& limits) {
  if (limits.busy_outbox_bytes <= limits.max_outbox_bytes)
    return absl::OkStatus();
  return absl::InvalidArgumentError(absl::StrCat(
      "The value of --busy-outbox-bytes, ", limits.busy_outbox_bytes,
      ", is above that of --max-outbox-bytes, ", limits.max_outbox_bytes, "."));
}

std::string LimitHelp() {
  const Limits defaults;
  std::string help;
  const auto add = [&help](const std::string& usage, const char* meaning,
                           const std::string& values) {
    absl::StrAppendFormat(&help, "  --%-25s  %s,\n%31s%s\n", usage, meaning, "",
                          values);
  };
  for (const SizeFlag& flag : kSizeFlags) {
    add(absl::StrCat(flag.name, " N"), flag.meaning,
        absl::StrCat(flag.minimum, " to ", flag.maximum,
                     "; default: ", defaults.*flag.limit));
  }
  for (const TimeFlag& flag : kTimeFlags) {
    add(absl::StrCat(flag.name, " SECONDS"), flag.meaning,
        absl::StrCat("0.001 to 86400; default: ",
                     Seconds(defaults.*flag.limit)));
  }
  return help;
}

}  // namespace window_host
