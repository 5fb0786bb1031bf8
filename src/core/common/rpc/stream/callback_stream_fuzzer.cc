// The input chooses operations on callback streams; after each, their state is
// compared with a model.

#include "core/common/rpc/stream/callback_stream_model.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/testing/model_run.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  torvane::RunModelOn<torvane::CallbackStreamModel>({data, size});
  return 0;
}
