// Reads a program's command line.
//
// Unlike Abseil's flags, this never ends the process with an exit code of its
// own, and --help does not list flags of the libraries.
//
//   std::string socket = cli::DefaultSocketPath();
//   int windows = 3;
//   cli::Flags flags;
//   flags.AddText("socket", &socket);
//   flags.AddInteger("windows", 0, 100, &windows);
//   absl::StatusOr<std::vector<std::string>> arguments =
//       flags.Parse(argc, argv);
//
// Both "--name value" and "--name=value" are read, before and between the
// arguments; "--" ends the flags. "-h" stands for "--help"; any other word that
// begins with a single dash is an argument.
//
// Ownership: the caller owns the variables, which must outlive the flags.
//
// Sequence: any one at a time.
//
// Failure: INVALID_ARGUMENT with a text for the user. Flags in front of the
// faulty one have been set by then.

#ifndef TOOLS_CLI_FLAGS_H_
#define TOOLS_CLI_FLAGS_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "absl/status/status.h"
#include "absl/status/statusor.h"

namespace cli {

class Flags {
 public:
  // The range of AddSeconds() unless another is given.
  static constexpr std::chrono::milliseconds kMinSeconds{1};
  static constexpr std::chrono::milliseconds kMaxSeconds =
      std::chrono::hours(24);

  // A flag without a value: true if it is given.
  void AddSwitch(const std::string& name, bool* is_set);

  void AddText(const std::string& name, std::string* value);
  void AddText(const std::string& name, std::optional<std::string>* value);

  // Whole numbers from `minimum` to `maximum`, both included.
  void AddInteger(const std::string& name,
                  int minimum,
                  int maximum,
                  int* value);
  void AddSize(const std::string& name,
               size_t minimum,
               size_t maximum,
               size_t* value);

  // Seconds, also with a fraction.
  void AddSeconds(const std::string& name,
                  std::chrono::milliseconds* value,
                  std::chrono::milliseconds minimum = kMinSeconds,
                  std::chrono::milliseconds maximum = kMaxSeconds);

  // Sets the variables and returns the arguments in their order, without the
  // program's name.
  absl::StatusOr<std::vector<std::string>> Parse(int argc,
                                                 const char* const* argv);

  // The names of the flags that Parse() has found, in their order.
  const std::vector<std::string>& given() const { return given_; }

 private:
  struct Flag {
    bool takes_value = true;
    // Returns what is wrong with the value; empty if it was set.
    std::function<std::string(const std::string&)> set;
  };

  absl::Status Set(std::string_view flag,
                   const char* const*& next,
                   const char* const* end);

  std::map<std::string, Flag, std::less<>> flags_;
  std::vector<std::string> given_;
};

}  // namespace cli

#endif  // TOOLS_CLI_FLAGS_H_
