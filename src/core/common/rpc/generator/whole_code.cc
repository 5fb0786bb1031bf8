#include "core/common/rpc/generator/whole_code.h"

#include <algorithm>
#include <cstddef>

namespace torvane::generator {
namespace {

class Reader {
 public:
  explicit Reader(std::string_view code) : rest_(code) {}

  std::string Run() {
    while (!rest_.empty() && why_.empty())
      ReadOne();
    if (why_.empty() && !open_.empty())
      why_ = std::string("nothing closes ") + open_.back();
    if (why_.empty() && conditions_ != 0)
      why_ = "nothing closes #if";
    return why_;
  }

 private:
  void ReadOne() {
    if (rest_.starts_with("//"))
      return SkipLine();
    if (rest_.starts_with("#"))
      return ReadDirective();
    const char next = rest_.front();
    rest_.remove_prefix(1);
    switch (next) {
      case '"':
      case '\'':
        return ReadLiteral(next);
      case '(':
      case '[':
      case '{':
        open_.push_back(next);
        return;
      case ')':
        return Close('(', next);
      case ']':
        return Close('[', next);
      case '}':
        return Close('{', next);
      case '$':
        why_ = "a variable is left";
    }
  }

  void SkipLine() {
    rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
  }

  void ReadDirective() {
    if (rest_.starts_with("#if"))
      ++conditions_;
    if (rest_.starts_with("#endif") && conditions_-- == 0)
      why_ = "nothing opens #endif";
    SkipLine();
  }

  void ReadLiteral(char quote) {
    for (size_t i = 0; i < rest_.size() && rest_[i] != '\n'; ++i) {
      if (rest_[i] == quote)
        return rest_.remove_prefix(i + 1);
      if (rest_[i] == '\\')
        ++i;
    }
    why_ = std::string("nothing closes ") + quote;
  }

  void Close(char opening, char closing) {
    if (open_.empty() || open_.back() != opening) {
      why_ = std::string("nothing opens ") + closing;
      return;
    }
    open_.pop_back();
  }

  std::string_view rest_;
  std::string open_;
  int conditions_ = 0;
  std::string why_;
};

}  // namespace

std::string WhyNotWhole(std::string_view code) {
  return Reader(code).Run();
}

}  // namespace torvane::generator
