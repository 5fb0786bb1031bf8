// The switches of mutants. Put into the copy of the sources that is mutated,
// and nowhere else.

#ifndef MUTATION_H_
#define MUTATION_H_

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <initializer_list>
#include <iterator>

// Whether mutant `n` is switched on, by TORVANE_MUTANT in the environment.
#define MUTANT(n) (::mutation::IsOn(n))

namespace mutation {

// A byte for each mutant that becomes 1 where the program gets to it, in the
// file that TORVANE_MUTANTS_REACHED names. The file is shared, so that what
// processes that the program forks, starts or kills get to is there, too.
struct Reached {
  Reached() {
    const char* path = std::getenv("TORVANE_MUTANTS_REACHED");
    const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0)
      return;
    size = static_cast<int>(status.st_size);
    void* const memory = mmap(nullptr, status.st_size, PROT_READ | PROT_WRITE,
                              MAP_SHARED, file, 0);
    marks = memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
    close(file);
  }

  char* marks = nullptr;
  int size = 0;
};

inline bool IsOn(int n) {
  static const int active = [] {
    const char* number = std::getenv("TORVANE_MUTANT");
    return number ? std::atoi(number) : 0;
  }();
  static const Reached reached;
  if (reached.marks && n < reached.size)
    reached.marks[n] = 1;
  return active == n;
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
