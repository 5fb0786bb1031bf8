// The service that all transports carry in the conformance tests. It does, and
// reports through its responses, what the requests ask for:
//
//   any method      checks that the request is SampleOf(method), and answers
//                   with SampleOf(method); for the window kUnimplemented, what
//                   the base class does
//   SetTitle        with the title "command", "menu" or "close": asks the
//                   client that question about the window, and completes when
//                   it is settled; with the title kWriteAroundReply: publishes
//                   that the window has closed and asks whether it may,
//                   completes, and then does the same about the next window;
//                   with kWriteAroundLateReply: does all that on a later turn;
//                   with any other title, keeps it
//   GetTitle        how the last question about the window was settled, or the
//                   title that was kept
//   Hide            publishes that the window has closed
//   Close           fails

#ifndef CORE_COMMON_RPC_CONFORMANCE_SCRIPTED_SERVICE_H_
#define CORE_COMMON_RPC_CONFORMANCE_SCRIPTED_SERVICE_H_

#include <google/protobuf/message.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "core/common/rpc/loop/sequence.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_every_unary_method.h"

namespace rpc::conformance {

inline constexpr int64_t kUnimplemented = 404;
inline constexpr char kCloseFailure[] = "The window is busy.";
inline constexpr char kWriteAroundReply[] = "write around the reply";
inline constexpr char kWriteAroundLateReply[] = "write around the late reply";

// Fills every singular field with something that tells `seed`.
void FillSample(google::protobuf::Message& message, int seed);

class ScriptedService : public EveryUnaryMethod {
 public:
  explicit ScriptedService(loop::Sequence& sequence) : sequence_(sequence) {}

  void CallMethod(const google::protobuf::MethodDescriptor* method,
                  google::protobuf::RpcController* controller,
                  const google::protobuf::Message* request,
                  google::protobuf::Message* response,
                  google::protobuf::Closure* done) override;

 private:
  void Serve(const Call& call, int method);
  void FollowTitle(const WindowTitle& request, google::protobuf::Closure* done);
  static void PublishClosed(int64_t window);
  void WriteAroundReply(int64_t window, google::protobuf::Closure* done);
  template <typename T>
  void Ask(int64_t window, google::protobuf::Closure* done);

  loop::Sequence& sequence_;
  BrowserWindowRpc unimplemented_;
  std::map<int64_t, std::string> titles_;
};

}  // namespace rpc::conformance

#endif  // CORE_COMMON_RPC_CONFORMANCE_SCRIPTED_SERVICE_H_
