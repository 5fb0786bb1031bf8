// A server that has nothing to do with windows, for the tests of a client that
// knows nothing of it.
//
//   shop_server PATH              serves a shop, and says what it offers
//   shop_server PATH --silent     does not say what it offers
//
// Prints "ready" and serves until it is killed.

#include <cstdio>
#include <map>
#include <string_view>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/transport/server.h"
#include "shop.rpc.h"

namespace {

using google::protobuf::Closure;
using google::protobuf::RpcController;

void Fail(RpcController* controller, absl::Status status) {
  rpc::serving::CallContext::Of(controller).Fail(std::move(status));
}

class Shop final : public shop::ShopRpc {
 public:
  void GetPrice(RpcController* controller,
                const BrowserId* article,
                shop::Price* price,
                Closure* done) override {
    const auto known = prices_.find(article->value());
    if (known == prices_.end())  // A text with what a terminal must not get.
      Fail(controller, absl::NotFoundError("No such article.\x1b[2J"));
    else
      *price = known->second;
    done->Run();
  }

  void SetPrice(RpcController*,
                const shop::NewPrice* change,
                shop::Price* price,
                Closure* done) override {
    *price = prices_[change->article().value()] = change->price();
    torvane::EventStream<shop::Price>::Publish(change->article(), *price);
    done->Run();
  }

  void AskForDiscount(RpcController* controller,
                      const shop::Discount* question,
                      shop::Discount* answer,
                      Closure* done) override {
    Ask(*question, controller, answer, done);
  }

  void AskForCount(RpcController* controller,
                   const BrowserId* article,
                   shop::Count* answer,
                   Closure* done) override {
    shop::Count question;
    *question.mutable_browser_id() = *article;
    question.set_question("How many?");
    Ask(question, controller, answer, done);
  }

 private:
  template <typename T>
  static void Ask(const T& question,
                  RpcController* controller,
                  T* answer,
                  Closure* done) {
    const bool asked = torvane::CallbackStream<T>::Ask(
        question, {.response_callback =
                       [answer, done](T& response) {
                         *answer = response;
                         done->Run();
                       },
                   .error_callback =
                       [controller, done](torvane::StreamCallError) {
                         Fail(controller, absl::AbortedError("Declined."));
                         done->Run();
                       }});
    if (!asked) {
      Fail(controller, absl::UnavailableError("Nobody answers."));
      done->Run();
    }
  }

  std::map<int64_t, shop::Price> prices_;
};

// Its services stand before the server: they outlive it.
struct ShopServer {
  explicit ShopServer(rpc::loop::Loop& loop) : server(loop) {
    server.AddService(&shop);
    server.AddService(&warehouse);
  }

  Shop shop;
  shop::WarehouseRpc warehouse;
  rpc::reflection::ReflectionService reflection{
      [this] { return server.Services(); }};
  rpc::transport::Server server;
};

int Main(int argc, char** argv) {
  if (argc < 2)
    return 2;
  rpc::loop::Loop loop;
  ShopServer shop(loop);
  if (argc == 2)
    shop.server.AddService(&shop.reflection);
  const absl::Status listening = shop.server.Listen(argv[1]);
  if (!listening.ok()) {
    std::fputs(listening.ToString().c_str(), stderr);
    return 1;
  }
  std::puts("ready");
  std::fflush(stdout);
  loop.Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  return Main(argc, argv);
}
