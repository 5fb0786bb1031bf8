#include "tools/cli/flags.h"

#include <cmath>
#include <utility>

#include "absl/strings/match.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/strip.h"
#include "tools/cli/nearest_name.h"

namespace cli {
namespace {

using std::chrono::milliseconds;

template <typename Integer>
std::function<std::string(const std::string&)> SetterOfInteger(Integer minimum,
                                                               Integer maximum,
                                                               Integer* value) {
  return [=](const std::string& text) -> std::string {
    Integer number;
    if (!absl::SimpleAtoi(text, &number) || number < minimum ||
        number > maximum) {
      return absl::StrCat("is not a whole number from ", minimum, " to ",
                          maximum);
    }
    *value = number;
    return "";
  };
}

}  // namespace

void Flags::AddSwitch(const std::string& name, bool* is_set) {
  flags_[name] = {.takes_value = false, .set = [is_set](const std::string&) {
                    *is_set = true;
                    return "";
                  }};
}

void Flags::AddText(const std::string& name, std::string* value) {
  flags_[name].set = [value](const std::string& text) {
    *value = text;
    return "";
  };
}

void Flags::AddText(const std::string& name,
                    std::optional<std::string>* value) {
  flags_[name].set = [value](const std::string& text) {
    *value = text;
    return "";
  };
}

void Flags::AddInteger(const std::string& name,
                       int minimum,
                       int maximum,
                       int* value) {
  flags_[name].set = SetterOfInteger(minimum, maximum, value);
}

void Flags::AddSize(const std::string& name,
                    size_t minimum,
                    size_t maximum,
                    size_t* value) {
  flags_[name].set = SetterOfInteger(minimum, maximum, value);
}

void Flags::AddSeconds(const std::string& name,
                       milliseconds* value,
                       milliseconds minimum,
                       milliseconds maximum) {
  using Seconds = std::chrono::duration<double>;
  const double least = Seconds(minimum).count();
  const double most = Seconds(maximum).count();
  flags_[name].set = [=](const std::string& text) -> std::string {
    double seconds;
    // Negated, so that "nan", for which every comparison is false, is a fault.
    if (!absl::SimpleAtod(text, &seconds) ||
        !(seconds >= least && seconds <= most)) {
      return absl::StrCat("is not a number of seconds from ", least, " to ",
                          most);
    }
    *value = milliseconds(std::lround(seconds * 1000));
    return "";
  };
}

absl::StatusOr<std::vector<std::string>> Flags::Parse(int argc,
                                                      const char* const* argv) {
  std::vector<std::string> arguments;
  const char* const* const end = argv + argc;
  for (const char* const* next = argv + 1; next < end;) {
    std::string_view word = *next++;
    if (word == "--") {
      arguments.insert(arguments.end(), next, end);
      break;
    }
    if (word == "-h")
      word = "--help";
    if (!absl::ConsumePrefix(&word, "--")) {
      arguments.emplace_back(word);
      continue;
    }
    if (absl::Status status = Set(word, next, end); !status.ok())
      return status;
  }
  return arguments;
}

// `flag` is the text behind the dashes, `next` the word after it. If that is
// the flag's value, `next` is moved past it.
absl::Status Flags::Set(std::string_view flag,
                        const char* const*& next,
                        const char* const* end) {
  const size_t equals = flag.find('=');
  const std::string_view name = flag.substr(0, equals);
  const auto it = flags_.find(name);
  if (it == flags_.end()) {
    std::vector<std::string> names;
    for (const auto& [known, unused] : flags_)
      names.push_back(absl::StrCat("--", known));
    return absl::InvalidArgumentError(
        absl::StrCat("There is no flag --", name, ".",
                     DidYouMean(absl::StrCat("--", name), names)));
  }

  std::string value;
  const bool has_value = equals != std::string_view::npos;
  if (has_value && !it->second.takes_value) {
    return absl::InvalidArgumentError(
        absl::StrCat("The flag --", name, " takes no value."));
  }
  if (has_value) {
    value = flag.substr(equals + 1);
  } else if (it->second.takes_value) {
    if (next == end) {
      return absl::InvalidArgumentError(
          absl::StrCat("The flag --", name, " needs a value."));
    }
    value = *next++;
  }

  const std::string fault = it->second.set(value);
  if (fault.empty()) {
    given_.emplace_back(name);
    return absl::OkStatus();
  }
  return absl::InvalidArgumentError(
      absl::StrCat("The value of --", name, ", '", value, "', ", fault, "."));
}

}  // namespace cli
