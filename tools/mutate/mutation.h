// The switches of mutants. Put into the copy of the sources that is mutated,
// and nowhere else.

#ifndef MUTATION_H_
#define MUTATION_H_

#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <iterator>

// Whether mutant `n` is switched on, by TORVANE_MUTANT in the environment.
#define MUTANT(n) (::mutation::Active() == (n))

namespace mutation {

inline int Active() {
  static const int active = [] {
    const char* number = std::getenv("TORVANE_MUTANT");
    return number ? std::atoi(number) : 0;
  }();
  return active;
}

template <typename Sequence>
std::ptrdiff_t Count(const Sequence& sequence) {
  return std::distance(std::begin(sequence), std::end(sequence));
}
template <typename T>
std::ptrdiff_t Count(std::initializer_list<T> sequence) {
  return static_cast<std::ptrdiff_t>(sequence.size());
}

// Tells a loop which element to leave out: the first, or the last of `count`.
struct Elements {
  bool LeaveOut() {
    ++seen;
    return (first && seen == 1) || (count > 0 && seen == count);
  }

  bool first;
  std::ptrdiff_t count;  // 0 for all of them.
  std::ptrdiff_t seen = 0;
};

}  // namespace mutation

#endif  // MUTATION_H_
