// What a fuzzer's source includes and defines.
//
// It defines LLVMFuzzerTestOneInput(), which uses GoogleTest's assertions; none
// may fail, whatever the input is. cmake/Fuzzing.cmake makes a program of it:
// one that makes inputs of its own, or one that replays stored inputs.

#ifndef CORE_COMMON_RPC_TESTING_FUZZER_H_
#define CORE_COMMON_RPC_TESTING_FUZZER_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

// These are libFuzzer's names. The result is 0: the input may be kept.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif  // CORE_COMMON_RPC_TESTING_FUZZER_H_
