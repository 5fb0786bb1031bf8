// Whether C++ code is whole, as far as that can be told without a compiler.

#ifndef CORE_COMMON_RPC_GENERATOR_WHOLE_CODE_H_
#define CORE_COMMON_RPC_GENERATOR_WHOLE_CODE_H_

#include <string>
#include <string_view>

namespace torvane::generator {

// What is not closed, or is closed without having been opened: a bracket, a
// literal, a comment, a condition of the preprocessor. Or what the generator's
// printer has left of a variable. Empty where nothing is wrong. Knows no raw
// strings.
std::string WhyNotWhole(std::string_view code);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_WHOLE_CODE_H_
