// Clients in processes of their own that are killed and stopped while questions
// are pending.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/soak/client_process.h"
#include "tools/soak/soak_client.h"
#include "tools/soak/soak_host.h"
#include "tools/soak/soak_service.h"
#include "tools/soak/tally.h"

namespace soak {
namespace {

using rpc::ShowContextMenu;

// A host and one client that answers nothing.
class KilledClient : public ::testing::Test {
 protected:
  KilledClient() {
    server_.AddService(&service_);
    EXPECT_TRUE(server_.Listen(socket_).ok());
    client_ = std::make_unique<ClientProcess>(
        std::vector<std::string>{
            SOAK, "--client", absl::StrCat("--socket=", socket_), "--number=1",
            absl::StrCat("--tally=", tally_->descriptor()), "--manner=silent"},
        std::vector<cli::InheritedDescriptor>{
            {tally_->descriptor(), tally_->descriptor()}});
    RunUntil([this] { return client_is_ready_; });
  }

  template <typename Condition>
  void RunUntil(Condition condition) {
    ASSERT_TRUE(loop_.RunUntil(condition));
  }

  void Ask(int64_t window) {
    ShowContextMenu question;
    question.mutable_browser_id()->set_value(window);
    question.mutable_question();
    EXPECT_TRUE(torvane::CallbackStream<ShowContextMenu>::Ask(
        question,
        {.response_callback = [this](ShowContextMenu&) { ++answered_; },
         .error_callback =
             [this](torvane::StreamCallError error) {
               EXPECT_EQ(error, torvane::StreamCallError::kCancelled);
               ++cancelled_;
             }}));
  }

  int answered_ = 0;
  int cancelled_ = 0;
  bool client_is_ready_ = false;
  const torvane::PrivateFolder folder_;
  const std::string socket_ = folder_.File("socket");
  const absl::StatusOr<SharedTally> tally_ = SharedTally::Create();
  rpc::loop::Loop loop_;
  SoakService service_{[this](const BrowserId&) { client_is_ready_ = true; }};
  rpc::transport::Server server_{loop_};
  std::unique_ptr<ClientProcess> client_;
};

TEST_F(KilledClient, EndsExactlyItsPendingQuestions) {
  constexpr int kQuestions = 1000;
  for (int i = 0; i < kQuestions; ++i)
    Ask(WindowOf(1, i % kWindowsPerClient));
  EXPECT_EQ(cancelled_, 0);
  client_->Kill();
  RunUntil([this] { return server_.counters().connections_now == 0; });
  // With its connection, not later.
  EXPECT_EQ(cancelled_, kQuestions);
  loop_.RunReady();
  EXPECT_EQ(cancelled_, kQuestions);
  EXPECT_EQ(answered_, 0);
}

TEST_F(KilledClient, EndsItsQuestionsEvenWhileItIsStopped) {
  client_->Stop();
  for (int64_t i = 0; i < kWindowsPerClient; ++i)
    Ask(WindowOf(1, i));
  loop_.RunReady();
  EXPECT_EQ(cancelled_, 0);
  client_->Kill();
  RunUntil([this] { return server_.counters().connections_now == 0; });
  EXPECT_EQ(cancelled_, kWindowsPerClient);
}

TEST(KilledAndStoppedClients, LoseNoQuestionAndSettleNoneTwice) {
  HostOptions options;
  options.program = SOAK;
  options.seed = 20'261'121;
  options.questions = 100'000;
  const Outcome outcome = RunHost(options);

  EXPECT_EQ(outcome.lost, 0u);
  EXPECT_EQ(outcome.doubled, 0u);
  EXPECT_EQ(outcome.wrong, 0u);
  EXPECT_EQ(outcome.asked, 100'000u);
  EXPECT_EQ(outcome.answered + outcome.declined + outcome.cancelled,
            outcome.asked);
  // An answer may be killed with its client, but none comes from nowhere.
  EXPECT_LE(outcome.answered, outcome.answers_sent);
  EXPECT_EQ(outcome.calls_failed, 0u);

  // Nothing stays open of those who have gone.
  EXPECT_EQ(outcome.descriptors_at_end, outcome.descriptors_at_start);
  EXPECT_GT(outcome.descriptors_at_start, 0u);
  EXPECT_GT(outcome.memory_at_start, 0u);
  EXPECT_GT(outcome.memory_at_end, 0u);

  // It has been what it is meant to be. A death is measured unless the soak has
  // ended meanwhile.
  EXPECT_LE(outcome.settling.count(), outcome.kills_with_questions_pending);
  EXPECT_GT(outcome.settling.count(), 50u);
  EXPECT_GT(outcome.settling.longest().count(), 0);
  EXPECT_GT(outcome.kills_with_questions_pending, 50u);
  EXPECT_GT(outcome.stops, 200u);
  EXPECT_GT(outcome.cancelled, 0u);
  EXPECT_GT(outcome.answered, 0u);
  EXPECT_GT(outcome.declined, 0u);
  EXPECT_GT(outcome.events_received, 0u);
  EXPECT_GT(outcome.calls_succeeded, 0u);
}

TEST(Help, IsNoFailure) {
  for (const char* flag : {"-h", "--help", "--version"}) {
    const std::string command = absl::StrCat(SOAK, " ", flag, " >/dev/null");
    EXPECT_EQ(std::system(command.c_str()), 0) << flag;
  }
}

// The test above trusts ok() and the counts that it looks at.
TEST(Outcomes, AreBadWithAnyQuestionLostDoubledOrWrong) {
  EXPECT_TRUE(Outcome().ok());
  EXPECT_FALSE(Outcome{.lost = 1}.ok());
  EXPECT_FALSE(Outcome{.doubled = 1}.ok());
  EXPECT_FALSE(Outcome{.wrong = 1}.ok());
}

}  // namespace
}  // namespace soak
