// Calls on callback streams: how the browser asks, and the ways in which a
// pending call ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/callback_stream_test_support.h"
#include "core/common/rpc/testing/allocation_counter.h"

namespace torvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using CallsTest = CallbackStreamTest;

// Writes a name down when its last copy goes.
class Farewell {
 public:
  Farewell(std::vector<std::string>& names, std::string name)
      : token_(std::shared_ptr<void>(nullptr, [&names, name](void*) {
          names.push_back(name);
        })) {}

 private:
  std::shared_ptr<void> token_;
};

TEST_F(CallsTest, TheCodesAreThoseOfTheContract) {
  EXPECT_EQ(static_cast<int32_t>(StreamCallError::kCancelled), 1);
  EXPECT_EQ(static_cast<int32_t>(StreamCallError::kRemoteError), 2);
  EXPECT_EQ(sizeof(StreamCallError), 4u);
}

TEST_F(CallsTest, ACopiedCallHasBothCallbacks) {
  const Stream::StreamCall call = Recorded("call");
  const Stream::StreamCall copy = call;
  rpc::CloseWindow answer;
  copy.response_callback(answer);
  copy.error_callback(StreamCallError::kRemoteError);
  call.response_callback(answer);
  EXPECT_THAT(endings_,
              ElementsAre("call answered", "call error 2", "call answered"));
}

TEST_F(CallsTest, ACallDestroysItsErrorCallbackFirst) {
  std::vector<std::string> gone;
  {
    const Stream::StreamCall call = {
        .response_callback =
            [f = Farewell(gone, "response")](rpc::CloseWindow&) {},
        .error_callback = [f = Farewell(gone, "error")](StreamCallError) {}};
  }
  EXPECT_THAT(gone, ElementsAre("error", "response"));
}

TEST_F(CallsTest, AnAnswerReachesItsCallWholeAndOnce) {
  const auto stream = Open();
  std::optional<rpc::CloseWindow> answer;
  CallbackStreamTestPeer::Add(
      *stream, WindowId(7), 3,
      {.response_callback =
           [&](rpc::CloseWindow& message) {
             answer = message;
             // Still in the table.
             EXPECT_EQ(PendingCalls(*stream, 7), 1u);
           },
       .error_callback = [](StreamCallError) { ADD_FAILURE(); }});
  Answer(*stream, 7, 3);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->SerializeAsString(), AnswerAbout(7).SerializeAsString());
  EXPECT_EQ(PendingWindows(*stream), 0u);

  answer.reset();
  Answer(*stream, 7, 3);
  EXPECT_FALSE(answer);
}

TEST_F(CallsTest, AnAnswerNeedsTheRightWindowAndTheRightId) {
  const auto stream = Open();
  Pend(*stream, 7, 3);
  Answer(*stream, 8, 3);
  Answer(*stream, 7, 4);
  EXPECT_THAT(endings_, IsEmpty());
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
  Answer(*stream, 7, 3);
  EXPECT_THAT(endings_, ElementsAre("3 answered"));
}

TEST_F(CallsTest, AnAnswerWithoutABrowserIdIsForTheEmptyOne) {
  const auto stream = Open();
  Pend(*stream, 0, 3);
  rpc::CloseWindow message;
  message.mutable_response();
  Frame frame = FrameOf(message, 3);
  stream->OnNext(&frame);
  EXPECT_THAT(endings_, ElementsAre("3 answered"));
}

TEST_F(CallsTest, OneIdMayBePendingForSeveralWindows) {
  const auto stream = Open();
  Pend(*stream, 7, 3);
  Pend(*stream, 8, 3);
  Answer(*stream, 8, 3);
  EXPECT_THAT(endings_, ElementsAre("3 answered"));
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
  EXPECT_EQ(PendingCalls(*stream, 8), 0u);
}

TEST_F(CallsTest, TheLastAnswerRemovesTheWindowAndItsKey) {
  const auto stream = Open();
  const ptrdiff_t before = CountAllocations().live();
  const auto silent = [] {
    return Stream::StreamCall{.response_callback = [](rpc::CloseWindow&) {},
                              .error_callback = [](StreamCallError) {}};
  };
  CallbackStreamTestPeer::Add(*stream, WindowId(7), 1, silent());
  CallbackStreamTestPeer::Add(*stream, WindowId(7), 2, silent());
  Answer(*stream, 7, 1);
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
  Answer(*stream, 7, 2);
  EXPECT_EQ(PendingWindows(*stream), 0u);
  EXPECT_EQ(CountAllocations().live(), before);

  CallbackStreamTestPeer::Add(*stream, WindowId(7), 3, silent());
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
  Fail(*stream, 7, 3);
  EXPECT_EQ(PendingWindows(*stream), 0u);
  EXPECT_EQ(CountAllocations().live(), before);
}

// No question leaves a window without calls behind; a window that has none all
// the same must not stay for ever.
TEST_F(CallsTest, AWindowWithoutCallsGoesThoughTheCallIsNotFound) {
  const auto stream = Open();
  auto& table = CallbackStreamTestPeer::PendingCalls(*stream);
  const ptrdiff_t before = CountAllocations().live();
  for (const auto end : {&Answer, &Fail}) {
    table.try_emplace(new BrowserId(WindowId(7)));
    end(*stream, 7, 1);
    EXPECT_EQ(PendingWindows(*stream), 0u);
  }
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(CallsTest, ACallIsFoundByAllBitsOfItsId) {
  const auto stream = Open();
  constexpr int64_t kLow = 1;
  for (const int64_t high : {int64_t{1} << 32, int64_t{1} << 62}) {
    Pend(*stream, 7, kLow);
    Pend(*stream, 7, high + kLow);
    Answer(*stream, 7, high + kLow);
    Fail(*stream, 7, kLow);
    EXPECT_THAT(endings_, ElementsAre(std::to_string(high + kLow) + " answered",
                                      "1 error 2"));
    endings_.clear();
  }
}

TEST_F(CallsTest, AnAnsweredCallIsDestroyedAfterItsCallback) {
  const auto stream = Open();
  std::vector<std::string> events;
  CallbackStreamTestPeer::Add(
      *stream, WindowId(7), 1,
      {.response_callback =
           [&events, f = Farewell(events, "response destroyed")](
               rpc::CloseWindow&) { events.push_back("answered"); },
       .error_callback =
           [f = Farewell(events, "error destroyed")](StreamCallError) {}});
  Answer(*stream, 7, 1);
  EXPECT_THAT(events,
              ElementsAre("answered", "error destroyed", "response destroyed"));
}

TEST_F(CallsTest, AnErrorFrameFailsItsCallOnce) {
  const auto stream = Open();
  size_t pending_in_callback = 0;
  CallbackStreamTestPeer::Add(
      *stream, WindowId(7), 3,
      {.response_callback = [](rpc::CloseWindow&) { ADD_FAILURE(); },
       .error_callback =
           [&](StreamCallError error) {
             EXPECT_EQ(error, StreamCallError::kRemoteError);
             pending_in_callback += PendingCalls(*stream, 7);
           }});
  Fail(*stream, 7, 3);
  EXPECT_EQ(pending_in_callback, 1u);
  EXPECT_EQ(PendingWindows(*stream), 0u);
  Fail(*stream, 7, 3);
  EXPECT_EQ(pending_in_callback, 1u);
}

TEST_F(CallsTest, AnErrorFrameNeedsTheRightWindowAndTheRightId) {
  const auto stream = Open();
  Pend(*stream, 7, 3);
  Fail(*stream, 8, 3);
  Fail(*stream, 7, 4);
  EXPECT_THAT(endings_, IsEmpty());
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
}

TEST_F(CallsTest, AnErrorFrameMayHoldAnyBody) {
  const auto stream = Open();
  rpc::CloseWindow message = AnswerAbout(7);
  for (int64_t id = 1; id <= 4; ++id) {
    Pend(*stream, 7, id);
    if (id == 2)
      message.set_subscribe(false);
    if (id == 3)
      message.mutable_question();
    if (id == 4)
      message.clear_body();
    Frame frame = FrameOf(message, id);
    stream->OnError(&frame);
  }
  EXPECT_THAT(endings_,
              ElementsAre("1 error 2", "2 error 2", "3 error 2", "4 error 2"));
}

TEST_F(CallsTest, AnErrorFrameThatDoesNotParseIsForTheEmptyBrowserId) {
  const auto stream = Open();
  Pend(*stream, 7, 3);
  Pend(*stream, 0, 3);
  Frame frame;
  frame.set_payload("\xff\xff\xff");
  frame.set_call_id(3);
  stream->OnError(&frame);
  EXPECT_THAT(endings_, ElementsAre("3 error 2"));
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
  EXPECT_EQ(PendingCalls(*stream, 0), 0u);
}

TEST_F(CallsTest, AnErrorFrameAfterTheEndOfItsCallIsDropped) {
  const auto stream = Open();
  Pend(*stream, 7, 1);
  Pend(*stream, 8, 2);
  Answer(*stream, 7, 1);
  Subscription(*stream, 8, false);
  Fail(*stream, 7, 1);
  Fail(*stream, 8, 2);
  EXPECT_THAT(endings_, ElementsAre("1 answered", "2 error 1"));
}

TEST_F(CallsTest, CancellationGoesByAscendingSignedIds) {
  const auto stream = Open();
  for (const int64_t id : {7, 3, 5, 0, -1})
    Pend(*stream, 7, id);
  stream->CancelPendingRequests(WindowId(7));
  EXPECT_THAT(endings_, ElementsAre("-1 error 1", "0 error 1", "3 error 1",
                                    "5 error 1", "7 error 1"));
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(CallsTest, CancellationIsForOneWindow) {
  const auto stream = Open();
  Pend(*stream, 7, 1);
  Pend(*stream, 8, 2);
  stream->CancelPendingRequests(WindowId(9));
  stream->CancelPendingRequests(WindowId(7));
  EXPECT_THAT(endings_, ElementsAre("1 error 1"));
  EXPECT_EQ(PendingCalls(*stream, 8), 1u);
}

TEST_F(CallsTest, CancellationKeepsTheEntriesMeanwhile) {
  const auto stream = Open();
  std::vector<std::string> events;
  for (const int64_t id : {1, 2}) {
    CallbackStreamTestPeer::Add(
        *stream, WindowId(7), id,
        {.response_callback = [](rpc::CloseWindow&) { ADD_FAILURE(); },
         .error_callback =
             [&, id, f = Farewell(events, std::to_string(id) + " destroyed")](
                 StreamCallError) {
               EXPECT_EQ(PendingCalls(*stream, 7), 2u);
               events.push_back(std::to_string(id) + " cancelled");
             }});
  }
  stream->CancelPendingRequests(WindowId(7));
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(events[0], "1 cancelled");
  EXPECT_EQ(events[1], "2 cancelled");
}

TEST_F(CallsTest, CancellationRunsOnACopyOfTheCallable) {
  struct CopyAware {
    explicit CopyAware(bool& called_as_copy) : called_as_copy(called_as_copy) {}
    CopyAware(CopyAware&& other) = default;
    CopyAware(const CopyAware& other)
        : called_as_copy(other.called_as_copy), is_copy(true) {}
    void operator()(StreamCallError) const { called_as_copy = is_copy; }
    bool& called_as_copy;
    bool is_copy = false;
  };
  const auto stream = Open();
  bool called_as_copy = false;
  for (const int64_t id : {1, 2}) {
    CallbackStreamTestPeer::Add(*stream, WindowId(7), id,
                                {.response_callback = [](rpc::CloseWindow&) {},
                                 .error_callback = CopyAware(called_as_copy)});
  }
  Fail(*stream, 7, 1);
  EXPECT_FALSE(called_as_copy);
  stream->CancelPendingRequests(WindowId(7));
  EXPECT_TRUE(called_as_copy);
}

TEST_F(CallsTest, CancellationCopiesTheWholeCallForNoLongerThanItsCallback) {
  struct Counted {
    explicit Counted(int& alive) : alive(alive) { ++alive; }
    Counted(const Counted& other) : alive(other.alive) { ++alive; }
    ~Counted() { --alive; }
    int& alive;
  };
  const auto stream = Open();
  int responses[] = {0, 0};
  int errors[] = {0, 0};
  int cancelled = 0;
  for (const int i : {0, 1}) {
    CallbackStreamTestPeer::Add(
        *stream, WindowId(7), i,
        {.response_callback = [counted =
                                   Counted(responses[i])](rpc::CloseWindow&) {},
         .error_callback =
             [&, i, counted = Counted(errors[i])](StreamCallError) {
               ++cancelled;
               EXPECT_EQ(responses[i], 2);
               EXPECT_EQ(errors[i], 2);
               EXPECT_EQ(responses[1 - i], 1);
               EXPECT_EQ(errors[1 - i], 1);
             }});
  }
  stream->CancelPendingRequests(WindowId(7));
  EXPECT_EQ(cancelled, 2);
  EXPECT_THAT(responses, ElementsAre(0, 0));
  EXPECT_THAT(errors, ElementsAre(0, 0));
}

TEST_F(CallsTest, CancellationMayBeGivenTheTablesOwnKey) {
  const auto stream = Open();
  const ptrdiff_t before = CountAllocations().live();
  CallbackStreamTestPeer::Add(*stream, WindowId(7), 1,
                              {.response_callback = [](rpc::CloseWindow&) {},
                               .error_callback = [](StreamCallError) {}});
  const auto& table = CallbackStreamTestPeer::PendingCalls(*stream);
  stream->CancelPendingRequests(*table.begin()->first);
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(CallsTest, CompletionCancelsTheCallsOfEveryWindow) {
  const auto stream = Open();
  const auto other = Open();
  Subscription(*stream, 7, true);
  Subscription(*stream, 8, true);
  Pend(*stream, 7, 1);
  Pend(*stream, 8, 2);
  Pend(*stream, 9, 3);
  // Taken over meanwhile.
  Subscription(*other, 8, true);

  std::vector<std::string> in_the_tables_order;
  for (const auto& [key, calls] : CallbackStreamTestPeer::PendingCalls(*stream))
    in_the_tables_order.push_back(std::to_string(calls.begin()->first) +
                                  " error 1");
  stream->OnCompleted();
  EXPECT_EQ(in_the_tables_order.size(), 3u);
  EXPECT_EQ(endings_, in_the_tables_order);
  EXPECT_EQ(StreamOf(8), other.get());
}

TEST_F(CallsTest, DestructionDiscardsCallsWithoutCallingThem) {
  auto stream = Open();
  std::vector<std::string> gone;
  const auto* key = new BrowserId(WindowId(7));
  CallbackStreamTestPeer::PendingCalls(*stream)[key].emplace(
      1, Stream::StreamCall{
             .response_callback = [f = Farewell(gone, "discarded")](
                                      rpc::CloseWindow&) { ADD_FAILURE(); },
             .error_callback = [](StreamCallError) { ADD_FAILURE(); }});
  delete stream.release();
  EXPECT_THAT(gone, ElementsAre("discarded"));
  // The key copy is left behind, whole.
  EXPECT_EQ(key->value(), 7);
  delete key;
}

class AskTest : public CallbackStreamTest {
 protected:
  static rpc::CloseWindow QuestionAbout(int64_t window) {
    rpc::CloseWindow message;
    *message.mutable_browser_id() = WindowId(window);
    message.mutable_question();
    return message;
  }
};

TEST_F(AskTest, PutsTheQuestionToTheStreamThatAnswersForItsWindow) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  ASSERT_TRUE(Stream::Ask(QuestionAbout(7), Recorded("question")));
  ASSERT_EQ(client->frames.size(), 1u);
  const Frame& asked = client->frames[0];
  EXPECT_EQ(asked.payload(), QuestionAbout(7).SerializeAsString());
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);

  Answer(*stream, 7, asked.call_id());
  EXPECT_THAT(endings_, ElementsAre("question answered"));
}

TEST_F(AskTest, NumbersTheQuestionsOfAStreamFromOne) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  for (const char* name : {"first", "second"})
    Stream::Ask(QuestionAbout(7), Recorded(name));
  ASSERT_EQ(client->frames.size(), 2u);
  EXPECT_EQ(client->frames[0].call_id(), 1);
  EXPECT_EQ(client->frames[1].call_id(), 2);
}

TEST_F(AskTest, KeepsOneKeyForAllQuestionsAboutAWindow) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  const auto silent = [] {
    return Stream::StreamCall{.response_callback = [](rpc::CloseWindow&) {},
                              .error_callback = [](StreamCallError) {}};
  };
  client->frames.reserve(2);
  const ptrdiff_t before = CountAllocations().live();
  for (int i = 0; i < 2; ++i)
    ASSERT_TRUE(Stream::Ask(QuestionAbout(7), silent()));
  for (const int64_t call_id : {1, 2})
    Answer(*stream, 7, call_id);
  EXPECT_EQ(PendingWindows(*stream), 0u);
  client->frames.clear();
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(AskTest, SaysAtOnceThatNobodyAnswersForTheWindow) {
  const auto stream = Open();
  Subscription(*stream, 7, true);
  EXPECT_FALSE(Stream::Ask(QuestionAbout(8), Recorded("question")));
  EXPECT_THAT(endings_, IsEmpty());
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(AskTest, SaysAtOnceThatTheClientCanNoLongerBeReached) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  client->reachable = false;
  EXPECT_FALSE(Stream::Ask(QuestionAbout(7), Recorded("question")));
  EXPECT_EQ(PendingWindows(*stream), 0u);
  stream->OnCompleted();
  EXPECT_THAT(endings_, IsEmpty());
}

TEST_F(AskTest, GivesEachQuestionAnIdOfItsOwn) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  for (const char* name : {"first", "second"})
    ASSERT_TRUE(Stream::Ask(QuestionAbout(7), Recorded(name)));
  ASSERT_EQ(client->frames.size(), 2u);
  EXPECT_NE(client->frames[0].call_id(), client->frames[1].call_id());

  Answer(*stream, 7, client->frames[1].call_id());
  Fail(*stream, 7, client->frames[0].call_id());
  EXPECT_THAT(endings_, ElementsAre("second answered", "first error 2"));
}

TEST_F(AskTest, NumbersQuestionsOnBeyond32Bits) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  for (const int64_t last : {int64_t{INT32_MAX}, int64_t{UINT32_MAX}}) {
    CallbackStreamTestPeer::SetNextCallId(*stream, last);
    for (const char* name : {"last", "first"})
      ASSERT_TRUE(Stream::Ask(QuestionAbout(7), Recorded(name)));
    ASSERT_EQ(client->frames.size(), 2u);
    EXPECT_EQ(client->frames[0].call_id(), last);
    EXPECT_EQ(client->frames[1].call_id(), last + 1);

    Answer(*stream, 7, last + 1);
    Fail(*stream, 7, last);
    EXPECT_THAT(endings_, ElementsAre("first answered", "last error 2"));
    client->frames.clear();
    endings_.clear();
  }
}

TEST_F(AskTest, AnAnswerThatComesWithinTheWriteFindsItsQuestion) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  client->on_frame = [&](const Frame& frame) {
    Answer(*stream, 7, frame.call_id());
  };
  EXPECT_TRUE(Stream::Ask(QuestionAbout(7), Recorded("question")));
  EXPECT_THAT(endings_, ElementsAre("question answered"));
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(AskTest, ACallThatAFailedWriteHasEndedWasAskedAllTheSame) {
  // A transport that completes the stream when it can't write to it.
  class BrokenEndpoint : public StreamChannel::Endpoint {
   public:
    bool Send(const Frame&) override {
      stream->OnCompleted();
      return false;
    }
    void Complete() override {}
    AbstractStream* stream = nullptr;
  };
  auto endpoint = std::make_unique<BrokenEndpoint>();
  BrokenEndpoint* const broken = endpoint.get();
  Stream stream(&service_, rpc::BrowserWindowRpc::descriptor()->method(40),
                StreamChannel(std::move(endpoint)));
  broken->stream = &stream;
  stream.Subscribe(WindowId(7));
  EXPECT_TRUE(Stream::Ask(QuestionAbout(7), Recorded("question")));
  EXPECT_THAT(endings_, ElementsAre("question error 1"));
}

TEST_F(AskTest, AStreamThatIsCompletingIsNotAsked) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  Subscription(*stream, 8, true);
  bool asked = true;
  CallbackStreamTestPeer::Add(*stream, WindowId(7), 1,
                              {.response_callback = [](rpc::CloseWindow&) {},
                               .error_callback =
                                   [&](StreamCallError) {
                                     asked = Stream::Ask(QuestionAbout(8),
                                                         Recorded("question"));
                                   }});
  stream->OnCompleted();
  EXPECT_FALSE(asked);
  EXPECT_THAT(endings_, IsEmpty());
  EXPECT_TRUE(client->frames.empty());
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(AskTest, TheStreamThatTookTheWindowOverIsAsked) {
  const auto client = std::make_shared<FakeClient>();
  const auto first = Open();
  const auto second = Open(client);
  Subscription(*first, 7, true);
  Subscription(*second, 7, true);
  ASSERT_TRUE(Stream::Ask(QuestionAbout(7), Recorded("question")));
  EXPECT_EQ(client->frames.size(), 1u);
  EXPECT_EQ(PendingWindows(*first), 0u);
}

TEST_F(AskTest, AWindowMayBeAskedAboutAnewAfterTheLastAnswer) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  for (const char* name : {"first", "second"}) {
    ASSERT_TRUE(Stream::Ask(QuestionAbout(7), Recorded(name)));
    Answer(*stream, 7, client->frames.back().call_id());
    EXPECT_EQ(PendingWindows(*stream), 0u);
  }
  EXPECT_THAT(endings_, ElementsAre("first answered", "second answered"));
}

}  // namespace
}  // namespace torvane
