// A process that a test starts, talks to and waits for.
//
// What it writes must fit into a pipe's buffer until the test reads it.
//
//   Process host({WINDOW_HOST, "--windows", "1"});
//   host.ReadLine();                 // blocks until it is ready
//   host.Signal(SIGTERM);
//   EXPECT_EQ(0, host.Wait().exit_code);

#ifndef TOOLS_RPCCTL_PROCESS_TEST_SUPPORT_H_
#define TOOLS_RPCCTL_PROCESS_TEST_SUPPORT_H_

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace rpcctl {

class Process {
 public:
  struct Result {
    // Negative: the signal that has ended the process.
    int exit_code;
    // The rest, after what ReadLine() and ReadErrorLine() have returned.
    std::string output;
    std::string errors;
  };

  // Which of its standard streams is a terminal; the others are pipes.
  enum class Terminal { kNone, kInput, kOutput };

  // The first word is the program's path.
  explicit Process(const std::vector<std::string>& words,
                   Terminal terminal = Terminal::kNone);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  // Kills the process unless Wait() has been called.
  ~Process();

  // To its standard input.
  void Write(std::string_view text);
  void CloseInput();

  // The next line of its standard output or standard error, without the line
  // break; empty at the end. A terminal puts "\r" before each break. Blocks,
  // and fails the test after a minute in which nothing has come.
  std::string ReadLine();
  std::string ReadErrorLine();

  // Closes the reading end of its standard output or standard error.
  void CloseOutput();
  void CloseErrors();

  void Signal(int signal) const;

  pid_t pid() const { return pid_; }

  // Closes its input and blocks until it ends.
  Result Wait();

 private:
  pid_t pid_ = 0;
  int input_ = -1;
  int output_ = -1;
  int errors_ = -1;
};

// Starts a process and waits for it.
Process::Result RunToEnd(const std::vector<std::string>& words);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_PROCESS_TEST_SUPPORT_H_
