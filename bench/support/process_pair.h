// Two processes that talk to each other, one of which measures.
//
//   int main(int argc, char** argv) {
//     return bench::RunPair(argc, argv, {
//         .serve = [](bench::ProcessPair& pair) { ...; pair.Signal(); ... },
//         .call = [](bench::ProcessPair& pair) { pair.Await(); ... }});
//   }
//
// The program forks before anything else runs, so that a library that starts
// threads has its own in each process. The parent is the process that measures;
// the mode decides whether that is the server or the client. It ends the other
// one when it is done. Unless told otherwise, both are bound to one core, so
// that no figure depends on how long the machine takes to wake another core.
//
// Failure: ends both processes with a message.

#ifndef BENCH_SUPPORT_PROCESS_PAIR_H_
#define BENCH_SUPPORT_PROCESS_PAIR_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

enum class Mode {
  kUnary,
  kTracedUnary,
  kPipelined,
  kQuestion,
  kTimedQuestion,
  kFanout,
  kMemory
};

// Every peer is measured with these.
inline constexpr int kCallsInFlight = 64;
inline constexpr int kConnections = 10;
inline constexpr int kStreamsPerConnection = 100;
inline constexpr int kStreams = kConnections * kStreamsPerConnection;

// The window that all calls, questions and events are about.
inline constexpr int kWindow = 1000;
inline constexpr char kTitle[] = "A page about nothing in particular";

class ProcessPair {
 public:
  ProcessPair(Mode mode, std::string socket_path, int channel, pid_t other);

  Mode mode() const { return mode_; }

  // Where the server listens.
  const std::string& socket_path() const { return socket_path_; }

  // Signal() lets Await() of the other process return.
  void Signal();
  void Await();

  // The other process. Only for the one that measures.
  pid_t other() const { return other_; }

  // Ends this process, and the other one if this one measures, without running
  // destructors, which would wait for the connection to close.
  [[noreturn]] void End();

 private:
  const Mode mode_;
  const std::string socket_path_;
  const int channel_;
  // Zero in the process that does not measure.
  const pid_t other_;
};

struct Halves {
  // The half that measures returns, or calls End(), when it has measured. The
  // other half may return at any time or never.
  std::function<void(ProcessPair&)> serve;
  std::function<void(ProcessPair&)> call;
  // The modes that this program supports.
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
