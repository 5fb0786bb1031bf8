// Random operations on event streams.

#include <gtest/gtest.h>

#include "core/common/rpc/stream/event_stream_model.h"
#include "core/common/rpc/testing/model_run.h"

namespace torvane {
namespace {

TEST(EventStreamModelTest, AgreesWithTheModelAfterEachOfManySteps) {
  RunModel<EventStreamModel>();
}

}  // namespace
}  // namespace torvane
