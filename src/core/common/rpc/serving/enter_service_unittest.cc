// A service that throws. Compiled with exceptions, as a program of others may
// be.

#include "core/common/rpc/serving/enter_service.h"

#include <google/protobuf/stubs/callback.h>
#include <google/protobuf/wrappers.pb.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "core/common/rpc/serving/calls.h"
#include "core/common/rpc/serving/streams_test_support.h"

namespace rpc::serving {
namespace {

void Throw() {
  throw std::runtime_error("no display");
}

// A client without a transport, and a service that throws whenever it can.
class EnterServiceTest : public StreamsTest, public ReplySink {
 protected:
  class ThrowingService final : public BrowserWindowRpc {
   public:
    void IsVisible(google::protobuf::RpcController*,
                   const BrowserId*,
                   google::protobuf::BoolValue*,
                   google::protobuf::Closure*) override {
      Throw();
    }
    void IsActive(google::protobuf::RpcController* controller,
                  const BrowserId*,
                  google::protobuf::BoolValue*,
                  google::protobuf::Closure* done) override {
      controller->NotifyOnCancel(
          google::protobuf::NewCallback(this, &ThrowingService::OnCancel));
      kept = done;
    }
    void OnCancel() {
      if (throws) {
        Throw();
      }
    }

    google::protobuf::Closure* kept = nullptr;
    bool throws = true;
  };

  EnterServiceTest() { throwing_methods_.Add(&throwing_); }
  ~EnterServiceTest() override {
    throwing_.throws = false;
    calls_->AbandonAll();
    if (throwing_.kept != nullptr) {
      throwing_.kept->Run();
      sequence_.Run();
    }
    pool_->Close();
  }

  absl::Status Start(const std::string& method) {
    return calls_->Start(
        1,
        static_cast<uint32_t>(
            BrowserWindowRpc::descriptor()->FindMethodByName(method)->index()),
        std::chrono::milliseconds(0), "");
  }

  ThrowingService throwing_;
  ServedMethods throwing_methods_;
  const std::shared_ptr<CallPool> pool_ =
      std::make_shared<CallPool>(sequence_, std::make_shared<Counters>());
  const std::unique_ptr<Calls> calls_ =
      std::make_unique<Calls>(*this,
                              throwing_methods_,
                              limits_,
                              *pool_,
                              client_);

 private:
  void SendReply(uint64_t, const google::protobuf::Message&) override {}
  void SendError(uint64_t, const absl::Status&) override {}
};

TEST_F(EnterServiceTest, UnaryMethodThatThrowsEndsTheProcessAndIsNamed) {
  EXPECT_DEATH((void)Start("IsVisible"),
               "rpc.BrowserWindow.IsVisible has thrown an exception: no "
               "display");
}

TEST_F(EnterServiceTest, CancelCallbackThatThrowsEndsTheProcessAndIsNamed) {
  EXPECT_TRUE(Start("IsActive").ok());
  EXPECT_DEATH(calls_->AbandonAll(),
               "rpc.BrowserWindow.IsActive has thrown an exception: no "
               "display");
}

TEST_F(EnterServiceTest, StreamThatThrowsEndsTheProcessAndIsNamed) {
  constexpr char kRecord[] =
      "rpc.BrowserWindow.OnCloseWindow has thrown an exception: no display";
  service_.on_open = [](ProbeStream&) { Throw(); };
  EXPECT_DEATH((void)TryOpen(1, "OnCloseWindow"), kRecord);

  service_.on_open = [](ProbeStream&) {};
  OpenQuestions(1).meanwhile = Throw;
  EXPECT_DEATH(AnswerFor(1, 7), kRecord);
  EXPECT_DEATH(Error(1), kRecord);
  EXPECT_DEATH(streams_->OnClientEnd(1), kRecord);
  service_.streams.back()->meanwhile = [] {};

  OpenEvents(2).meanwhile = Throw;
  EXPECT_DEATH(Listen(2, 7),
               "rpc.BrowserWindow.WhenBrowserWindowClosed has thrown an "
               "exception: no display");
  service_.streams.back()->meanwhile = [] {};
}

TEST_F(EnterServiceTest, StreamThatThrowsWhenItsClientLeavesIsNamed) {
  ProbeStream& stream = OpenEvents(1);
  Listen(1, 7);
  stream.meanwhile = Throw;
  EXPECT_DEATH(CloseAndForget(),
               "rpc.BrowserWindow.WhenBrowserWindowClosed has thrown an "
               "exception: no display");
  stream.meanwhile = [] {};
}

}  // namespace
}  // namespace rpc::serving
