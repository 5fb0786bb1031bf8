// Runs a host whose clients are killed, stopped and slowed down at random, and
// says whether every question has ended exactly once.

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "tools/cli/flags.h"
#include "tools/cli/program_description.h"
#include "tools/soak/report.h"
#include "tools/soak/soak_client.h"
#include "tools/soak/soak_host.h"

namespace soak {
namespace {

constexpr int kUsage = 2;

constexpr int kMostClients = 400;
constexpr int kMostSeconds = 7 * 24 * 60 * 60;

// How long the impatient questions wait: longer than most answers take, shorter
// than most clients are stopped.
constexpr std::chrono::milliseconds kPatience{20};

cli::ProgramDescription Describe() {
  return {
      .name = "soak",
      .summary =
          "a host, and clients that are killed, stopped and slowed at "
          "random",
      .arguments = "SECONDS",
      .flags = {{"clients", "N",
                 "how many clients at a time, 2 to 400; default: 16"},
                {"seed", "N",
                 "what all chance follows from; default: another each time"},
                cli::HelpFlag(),
                cli::VersionFlag()},
      .details =
          "The host asks its clients questions, publishes events and answers "
          "calls, for so many seconds, while it kills (SIGKILL), stops and "
          "continues (SIGSTOP, SIGCONT) client processes, and starts new ones. "
          "A quarter of them takes a break before each answer. Every question "
          "must end exactly once, and with its own answer if with any.",
      .exit_statuses = {{"0", "if every question did"},
                        {"1", "if not"},
                        {"2", "wrong usage"}},
  };
}

int Fail(int exit_code, std::string_view text) {
  std::fputs(absl::StrCat("soak: ", text, "\n").c_str(), stderr);
  return exit_code;
}

int Host(const HostOptions& options) {
  std::printf("soak: seed %llu\n",
              static_cast<unsigned long long>(options.seed));
  std::fflush(stdout);
  const Outcome outcome = RunHost(options);
  std::fputs(Report(outcome).c_str(), stdout);
  return outcome.ok() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int Client(ClientOptions options, const std::string& manner) {
  options.manner = manner == "silent" ? Manner::kSilent
                   : manner == "slow" ? Manner::kSlow
                                      : Manner::kLively;
  return Fail(EXIT_FAILURE, RunClient(options).message());
}

int Main(int argc, char** argv) {
  constexpr size_t kAny = std::numeric_limits<uint32_t>::max();
  bool help = false;
  bool version = false;
  bool is_client = false;
  int clients = 16;
  size_t seed = std::random_device()();
  // Passed by the host to the client processes that it starts.
  ClientOptions client;
  size_t number = 0;
  std::string manner;

  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddSwitch("version", &version);
  flags.AddInteger("clients", 2, kMostClients, &clients);
  flags.AddSize("seed", 0, kAny, &seed);
  flags.AddSwitch("client", &is_client);
  flags.AddText("socket", &client.socket);
  flags.AddSize("number", 0, kAny, &number);
  flags.AddText("manner", &manner);
  flags.AddInteger("tally", 0, 1'000'000, &client.tally);
  const auto arguments = flags.Parse(argc, argv);
  if (!arguments.ok()) {
    return Fail(kUsage, absl::StrCat(arguments.status().message(),
                                     " 'soak --help' says more."));
  }
  if (help || version) {
    const cli::ProgramDescription program = Describe();
    std::fputs((help ? cli::Help(program) : cli::VersionLine(program)).c_str(),
               stdout);
    return EXIT_SUCCESS;
  }
  if (is_client) {
    client.number = static_cast<int64_t>(number);
    client.seed = seed;
    return Client(client, manner);
  }

  int seconds = 0;
  if (arguments->size() != 1 ||
      !absl::SimpleAtoi(arguments->front(), &seconds) || seconds < 1 ||
      seconds > kMostSeconds) {
    return Fail(kUsage,
                absl::StrCat("Say for how many seconds, 1 to ", kMostSeconds,
                             ". 'soak --help' says more."));
  }
  HostOptions options;
  options.program = "/proc/self/exe";
  options.clients = static_cast<size_t>(clients);
  options.seed = seed;
  options.duration = std::chrono::seconds(seconds);
  options.patience = kPatience;
  return Host(options);
}

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
  return soak::Main(argc, argv);
}
