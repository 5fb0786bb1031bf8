// Defines LLVMFuzzerInitialize(), which libFuzzer calls before the first input.

#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/logging.h"

namespace {

// Aborts when an assertion fails. libFuzzer then reports a fault and stores the
// input.
class AbortOnFailure final : public testing::EmptyTestEventListener {
 public:
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed()) {
      std::abort();
    }
  }
};

}  // namespace

// Turns logging off: warnings about bad input are expected here.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  testing::UnitTest::GetInstance()->listeners().Append(new AbortOnFailure);
  logging::SetMinLogLevel(logging::LOGGING_FATAL);
  google::protobuf::SetLogHandler(nullptr);
  return 0;
}
