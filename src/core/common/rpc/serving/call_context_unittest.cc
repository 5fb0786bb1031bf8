#include "core/common/rpc/serving/call_context.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>

#include "core/common/rpc/testing/recording_call.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::serving {
namespace {

using torvane::CountingClosure;

const google::protobuf::MethodDescriptor& Method(const std::string& name) {
  return *BrowserWindowRpc::descriptor()->FindMethodByName(name);
}

// A call of Show that nobody has ended.
class CallContextTest : public ::testing::Test {
 protected:
  CallContextTest() {
    context_.Start(Method("Show"), "tester (pid 4711)", std::nullopt);
  }

  CallContext context_;
};

TEST_F(CallContextTest, BeginsWithWhatTheMethodMayKnow) {
  const CallContext::Deadline deadline =
      std::chrono::steady_clock::time_point(std::chrono::seconds(5));
  context_.Start(Method("Hide"), "other (pid 1)", deadline);
  EXPECT_EQ(context_.peer(), "other (pid 1)");
  EXPECT_EQ(context_.deadline(), deadline);
  EXPECT_TRUE(context_.status().ok());
  EXPECT_FALSE(context_.IsCanceled());
}

TEST_F(CallContextTest, IsFoundBehindTheControllerOfAMethod) {
  google::protobuf::RpcController* const controller = &context_;
  EXPECT_EQ(&CallContext::Of(controller), &context_);
}

TEST_F(CallContextTest, FailsWithTheStatusThatTheMethodChooses) {
  context_.Fail(absl::NotFoundError("no window 7"));
  EXPECT_EQ(context_.status(), absl::NotFoundError("no window 7"));
  context_.Fail(absl::InternalError("worse"));
  EXPECT_EQ(context_.status(), absl::InternalError("worse"));
}

TEST_F(CallContextTest, FailsWithUnknownWhenThereIsOnlyAText) {
  context_.SetFailed("no window 7");
  EXPECT_EQ(context_.status(), absl::UnknownError("no window 7"));
  context_.SetFailed("");
  EXPECT_EQ(context_.status(), absl::UnknownError(""));
}

TEST_F(CallContextTest, FailsWithUnimplementedOnlyForItsOwnMethod) {
  context_.SetFailed("Method Hide() not implemented.");
  EXPECT_EQ(context_.status(),
            absl::UnknownError("Method Hide() not implemented."));
  context_.SetFailed("Method Show() not implemented.");
  EXPECT_EQ(context_.status(),
            absl::UnimplementedError("Method Show() not implemented."));
}

TEST_F(CallContextTest, IsCancelledByCancelAndNotByFinish) {
  context_.Finish();
  EXPECT_FALSE(context_.IsCanceled());
  context_.Cancel();
  EXPECT_TRUE(context_.IsCanceled());
}

TEST_F(CallContextTest, NotifiesOnceWhenItIsCancelledAndThenFinished) {
  CountingClosure notice([this] { EXPECT_TRUE(context_.IsCanceled()); });
  context_.NotifyOnCancel(&notice);
  EXPECT_EQ(notice.runs(), 0);
  context_.Cancel();
  EXPECT_EQ(notice.runs(), 1);
  context_.Cancel();
  context_.Finish();
  EXPECT_EQ(notice.runs(), 1);
}

TEST_F(CallContextTest, NotifiesOnceWhenItIsOverWithoutBeingCancelled) {
  CountingClosure notice([this] { EXPECT_FALSE(context_.IsCanceled()); });
  context_.NotifyOnCancel(&notice);
  context_.Finish();
  context_.Finish();
  EXPECT_EQ(notice.runs(), 1);
}

TEST_F(CallContextTest, NotifiesAtOnceWhenItIsTooLate) {
  context_.Cancel();
  CountingClosure late;
  context_.NotifyOnCancel(&late);
  EXPECT_EQ(late.runs(), 1);
  context_.Finish();
  EXPECT_EQ(late.runs(), 1);

  context_.Start(Method("Show"), "", std::nullopt);
  context_.Finish();
  CountingClosure later;
  context_.NotifyOnCancel(&later);
  EXPECT_EQ(later.runs(), 1);
}

TEST_F(CallContextTest, BeginsAnewAfterACallThatIsOver) {
  context_.Start(Method("Show"), "tester", std::chrono::steady_clock::now());
  context_.Fail(absl::NotFoundError("no window 7"));
  CountingClosure first;
  context_.NotifyOnCancel(&first);
  context_.Cancel();

  context_.Start(Method("Hide"), "other", std::nullopt);
  EXPECT_EQ(context_.peer(), "other");
  EXPECT_EQ(context_.deadline(), std::nullopt);
  EXPECT_TRUE(context_.status().ok());
  EXPECT_FALSE(context_.IsCanceled());
  context_.SetFailed("Method Hide() not implemented.");
  EXPECT_TRUE(absl::IsUnimplemented(context_.status()));
  CountingClosure second;
  context_.NotifyOnCancel(&second);
  EXPECT_EQ(second.runs(), 0);
  context_.Finish();
  EXPECT_EQ(second.runs(), 1);
  EXPECT_EQ(first.runs(), 1);
}

using CallContextDeathTest = CallContextTest;

TEST_F(CallContextDeathTest, ACallCannotFailWithOk) {
  EXPECT_DEATH(context_.Fail(absl::OkStatus()), "a call does not fail with OK");
}

TEST_F(CallContextDeathTest, ACallNotifiesOneClosureOnly) {
  CountingClosure notice;
  context_.NotifyOnCancel(&notice);
  EXPECT_DEATH(context_.NotifyOnCancel(&notice),
               "NotifyOnCancel\\(\\) may be used once in a call");
}

TEST_F(CallContextDeathTest, AMethodUsesNothingOfTheClientsSide) {
  EXPECT_DEATH(context_.Reset(), "Reset\\(\\) belongs to the client's side");
  EXPECT_DEATH(context_.Failed(), "Failed\\(\\) belongs to the client's side");
  EXPECT_DEATH(context_.ErrorText(),
               "ErrorText\\(\\) belongs to the client's side");
  EXPECT_DEATH(context_.StartCancel(),
               "StartCancel\\(\\) belongs to the client's side");
}

}  // namespace
}  // namespace rpc::serving
