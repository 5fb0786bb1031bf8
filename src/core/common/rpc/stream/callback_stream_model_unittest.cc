// Random operations on callback streams.

#include <gtest/gtest.h>

#include "core/common/rpc/stream/callback_stream_model.h"
#include "core/common/rpc/testing/model_run.h"

namespace torvane {
namespace {

TEST(CallbackStreamModelTest, AgreesWithTheModelAfterEachOfManySteps) {
  RunModel<CallbackStreamModel>();
}

}  // namespace
}  // namespace torvane
