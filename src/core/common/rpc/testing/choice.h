// The decisions of a model test: random ones, or the bytes of a fuzzer's input.

#ifndef CORE_COMMON_RPC_TESTING_CHOICE_H_
#define CORE_COMMON_RPC_TESTING_CHOICE_H_

#include <functional>

namespace torvane {

// One of the numbers from 0 to n - 1.
using Choice = std::function<int(int n)>;

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_CHOICE_H_
