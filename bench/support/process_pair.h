// Two processes that talk to each other, one of which measures.
//
//   int main(int argc, char** argv) {
//     return bench::RunPair(argc, argv, {
//         .serve = [](bench::ProcessPair& pair) { ...; pair.Signal(); ... },
//         .call = [](bench::ProcessPair& pair) { pair.Await(); ... }});
//   }
//
// The program forks before anything else runs, so that libraries which start
// threads do so in each process on their own. The process that measures is the
// parent, which ends the other one when it is done; the mode says which half
// that is. Both are bound to one core unless told otherwise: then no reading
// depends on how long the machine takes to wake another core.
//
// Failure: ends the process with a message, and the other one with it.

#ifndef BENCH_SUPPORT_PROCESS_PAIR_H_
#define BENCH_SUPPORT_PROCESS_PAIR_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

enum class Mode {
  kUnary,
  kPipelined,
  kQuestion,
  kTimedQuestion,
  kFanout,
  kMemory
};

// What is asked of every peer alike.
inline constexpr int kCallsInFlight = 64;
inline constexpr int kConnections = 10;
inline constexpr int kStreamsPerConnection = 100;
inline constexpr int kStreams = kConnections * kStreamsPerConnection;

// Of the window that all calls, questions and events are about.
inline constexpr int kWindow = 1000;
inline constexpr char kTitle[] = "A page about nothing in particular";

class ProcessPair {
 public:
  ProcessPair(Mode mode, std::string socket_path, int channel, pid_t other);

  Mode mode() const { return mode_; }

  // Where the server listens.
  const std::string& socket_path() const { return socket_path_; }

  // Tells the other process, and waits to be told.
  void Signal();
  void Await();

  // CPU time of both processes in nanoseconds. Only the measuring one may ask.
  double CpuTime() const;

  // Ends the other process, if this one measures, and then this one: without
  // farewells between peers, and without destructors that wait for them.
  [[noreturn]] void End();

 private:
  const Mode mode_;
  const std::string socket_path_;
  const int channel_;
  // Zero in the process that does not measure.
  const pid_t other_;
};

struct Halves {
  // Returns, or calls End(), when it has measured; else when it likes, or
  // never.
  std::function<void(ProcessPair&)> serve;
  std::function<void(ProcessPair&)> call;
  // Those that the program has.
  std::vector<Mode> modes = {Mode::kUnary, Mode::kPipelined, Mode::kQuestion,
                             Mode::kFanout};
};

// Arguments: the mode by name, and "--all-cores". Prints what it has measured
// as a line of JSON, times in nanoseconds.
int RunPair(int argc, char** argv, const Halves& halves);

[[noreturn]] void Fail(const std::string& what);

// The same for a system call that has just set errno.
[[noreturn]] void FailWithErrno(const std::string& what);

}  // namespace bench

#endif  // BENCH_SUPPORT_PROCESS_PAIR_H_
