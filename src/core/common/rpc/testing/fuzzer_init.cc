// What libFuzzer calls before the first input.

#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/logging.h"

namespace {

// A failed assertion ends the process, in a way that libFuzzer takes for a
// fault: it keeps the input.
class AbortOnFailure final : public testing::EmptyTestEventListener {
 public:
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.failed()) {
      std::abort();
    }
  }
};

}  // namespace

// What the code warns of is what it is given on purpose here.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  testing::UnitTest::GetInstance()->listeners().Append(new AbortOnFailure);
  logging::SetMinLogLevel(logging::LOGGING_FATAL);
  google::protobuf::SetLogHandler(nullptr);
  return 0;
}
