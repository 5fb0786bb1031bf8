#include "tools/cli/page.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tools/cli/completion.h"
#include "tools/cli/manual_page.h"

namespace cli {

int PrintPage(const ProgramDescription& program, int argc, char** argv) {
  constexpr struct {
    std::string_view name;
    std::string (*make)(const ProgramDescription&);
  } kPages[] = {{"man", ManualPage},
                {"bash", BashCompletion},
                {"zsh", ZshCompletion},
                {"fish", FishCompletion}};
  for (const auto& page : kPages) {
    if (argc == 2 && page.name == argv[1]) {
      std::fputs(page.make(program).c_str(), stdout);
      return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
  }
  std::fputs("Say what to print: man, bash, zsh or fish.\n", stderr);
  return EXIT_FAILURE;
}

}  // namespace cli
