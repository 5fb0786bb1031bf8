// A source of its own, since it is compiled anew for each version.

#include "tools/cli/program_description.h"

namespace cli {

std::string_view Version() {
  return TORVANE_VERSION;
}

}  // namespace cli
