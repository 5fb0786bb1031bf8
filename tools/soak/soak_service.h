// The service of a soak's host: implements only the method that clients call.
//
// Ownership: the host's. Sequence: that of its server. Failure: none.

#ifndef TOOLS_SOAK_SOAK_SERVICE_H_
#define TOOLS_SOAK_SOAK_SERVICE_H_

#include <functional>
#include <utility>

#include "rpc/browser/browser_window.rpc.h"

namespace soak {

class SoakService final : public rpc::BrowserWindowRpc {
 public:
  // `on_focus` is called with the window of each call of Focus.
  explicit SoakService(std::function<void(const BrowserId&)> on_focus)
      : on_focus_(std::move(on_focus)) {}

  // rpc::BrowserWindowRpc:
  void Focus(google::protobuf::RpcController*,
             const BrowserId* request,
             google::protobuf::Empty*,
             google::protobuf::Closure* done) override {
    on_focus_(*request);
    done->Run();
  }
  void GetTitle(google::protobuf::RpcController*,
                const BrowserId*,
                google::protobuf::StringValue* response,
                google::protobuf::Closure* done) override {
    response->set_value("A page about nothing in particular");
    done->Run();
  }

 private:
  const std::function<void(const BrowserId&)> on_focus_;
};

}  // namespace soak

#endif  // TOOLS_SOAK_SOAK_SERVICE_H_
