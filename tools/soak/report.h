// What a soak prints in the end.

#ifndef TOOLS_SOAK_REPORT_H_
#define TOOLS_SOAK_REPORT_H_

#include <string>

#include "tools/soak/soak_host.h"

namespace soak {

// Lines, each with what it is about in front.
std::string Report(const Outcome& outcome);

}  // namespace soak

#endif  // TOOLS_SOAK_REPORT_H_
