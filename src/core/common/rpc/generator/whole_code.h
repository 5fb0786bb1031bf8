// Checks C++ code for what is cut off or left open, without a compiler.

#ifndef CORE_COMMON_RPC_GENERATOR_WHOLE_CODE_H_
#define CORE_COMMON_RPC_GENERATOR_WHOLE_CODE_H_

#include <string>
#include <string_view>

namespace torvane::generator {

// Says which bracket, literal, comment or preprocessor condition is not closed,
// or is closed without having been opened, or that a $variable$ of the
// generator's printer was not replaced. Empty if nothing is wrong. Does not
// support raw strings.
std::string WhyNotWhole(std::string_view code);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_WHOLE_CODE_H_
