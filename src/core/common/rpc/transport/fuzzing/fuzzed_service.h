// The lab's service for the fuzzers of the server: its methods publish, ask,
// and complete other calls. They act only when a client calls them, so that a
// conversation takes the same course each time.

#ifndef CORE_COMMON_RPC_TRANSPORT_FUZZING_FUZZED_SERVICE_H_
#define CORE_COMMON_RPC_TRANSPORT_FUZZING_FUZZED_SERVICE_H_

#include <google/protobuf/service.h>

#include <cstdint>
#include <vector>

#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {

class FuzzedService final : public LabService {
 public:
  FuzzedService();

  // The server is gone. Answers the calls that are still parked, checks that
  // every question has ended exactly once, and empties the registries.
  ~FuzzedService() override;

  // Waits until a call of Make() or its cancellation completes it.
  void Park(google::protobuf::RpcController* controller,
            const lab::Text* request,
            lab::Text* response,
            google::protobuf::Closure* done) override;

  // Has the browser do something about the window of that number: publishes an
  // event, asks a question, and completes the call that is parked longest.
  void Make(google::protobuf::RpcController* controller,
            const lab::Number* request,
            lab::Text* response,
            google::protobuf::Closure* done) override;

 private:
  void Unpark(serving::CallContext* call);
  void CompleteOldest();
  void Complete(std::vector<Parked>::iterator call);
  void Ask(int64_t window);

  // How often each question has ended.
  std::vector<int> endings_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_FUZZING_FUZZED_SERVICE_H_
