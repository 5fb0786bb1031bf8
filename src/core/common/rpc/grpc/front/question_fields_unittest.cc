#include "core/common/rpc/grpc/front/question_fields.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "rpc/browser/browser_window.pb.h"

namespace rpc::grpc {
namespace {

std::string Bytes(std::initializer_list<int> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

CloseWindow Answer(int64_t window) {
  CloseWindow answer;
  answer.mutable_browser_id()->set_value(window);
  answer.mutable_response()->set_allowed(true);
  return answer;
}

TEST(AppendCallId, AddsTwoToElevenBytes) {
  for (const auto& [call_id, bytes] :
       {std::pair{int64_t{0}, 2},
        {1, 2},
        {127, 2},
        {128, 3},
        {std::numeric_limits<int64_t>::max(), 10},
        {-1, 11},
        {std::numeric_limits<int64_t>::min(), 11}}) {
    std::string message = "x";
    AppendCallId(call_id, message);
    EXPECT_EQ(message.size(), 1u + bytes) << call_id;
  }
}

TEST(QuestionFields, WhatWasAppendedIsTakenOutAgain) {
  for (const int64_t call_id :
       {int64_t{0}, int64_t{1}, int64_t{300}, int64_t{-1},
        std::numeric_limits<int64_t>::max(),
        std::numeric_limits<int64_t>::min()}) {
    const std::string original = Answer(7).SerializeAsString();
    std::string message = original;
    AppendCallId(call_id, message);
    const QuestionFields said = TakeQuestionFields(message);
    EXPECT_EQ(said.call_id, call_id);
    EXPECT_EQ(message, original);
  }
}

TEST(QuestionFields, AnAnswerIsRead) {
  std::string message = Answer(7).SerializeAsString();
  const QuestionFields said = TakeQuestionFields(message);
  EXPECT_EQ(said.window, Answer(7).browser_id().SerializeAsString());
  EXPECT_TRUE(said.has_response);
  EXPECT_FALSE(said.subscribe);
  EXPECT_FALSE(said.declined);
  EXPECT_FALSE(said.call_id);
}

TEST(QuestionFields, ASubscriptionIsRead) {
  for (const bool subscribe : {true, false}) {
    CloseWindow subscription;
    subscription.set_subscribe(subscribe);
    std::string message = subscription.SerializeAsString();
    const QuestionFields said = TakeQuestionFields(message);
    EXPECT_EQ(said.subscribe, subscribe);
    EXPECT_FALSE(said.has_response);
    EXPECT_EQ(said.window, "");
    EXPECT_EQ(message, subscription.SerializeAsString());
  }
}

TEST(QuestionFields, ARefusalIsTakenOut) {
  std::string message = Bytes({14 << 3, 1, 1 << 3 | 2, 0, 15 << 3, 5});
  const QuestionFields said = TakeQuestionFields(message);
  EXPECT_TRUE(said.declined);
  EXPECT_EQ(said.call_id, 5);
  EXPECT_EQ(message, Bytes({1 << 3 | 2, 0}));
}

TEST(QuestionFields, TheLastOfSeveralCounts) {
  std::string message = Bytes({15 << 3, 5, 14 << 3, 1, 14 << 3, 0, 15 << 3, 6,
                               2 << 3, 1, 4 << 3 | 2, 0});
  const QuestionFields said = TakeQuestionFields(message);
  EXPECT_EQ(said.call_id, 6);
  EXPECT_FALSE(said.declined);
  EXPECT_TRUE(said.has_response);
  EXPECT_FALSE(said.subscribe);
  EXPECT_EQ(message, Bytes({2 << 3, 1, 4 << 3 | 2, 0}));
}

TEST(QuestionFields, UnknownFieldsOfAllKindsStay) {
  // A varint, 64 bits, bytes, a group with a field, 32 bits; and the two
  // numbers with other types.
  const std::string unknown =
      Bytes({((20 << 3) & 127) | 128, 1, 9}) +
      Bytes({((21 << 3) & 127) | 128 | 1, 1, 1, 2, 3, 4, 5, 6, 7, 8}) +
      Bytes({((22 << 3) & 127) | 128 | 2, 1, 2, 120, 5}) +
      Bytes({6 << 3 | 3, 15 << 3, 9, 6 << 3 | 4}) +
      Bytes({7 << 3 | 5, 1, 2, 3, 4}) + Bytes({15 << 3 | 2, 1, 7}) +
      Bytes({14 << 3 | 5, 1, 2, 3, 4});
  std::string message = unknown + Bytes({15 << 3, 3});
  const QuestionFields said = TakeQuestionFields(message);
  EXPECT_EQ(said.call_id, 3);
  EXPECT_FALSE(said.declined);
  EXPECT_EQ(message, unknown);
}

TEST(QuestionFields, ABrokenMessageStaysAndSaysNothing) {
  for (const std::string& broken :
       {Bytes({15 << 3, 5, 0}), Bytes({15 << 3, 5, 1 << 3 | 2, 9, 1}),
        Bytes({15 << 3, 5, 15 << 3}), Bytes({15 << 3, 5, 6 << 3 | 3}),
        Bytes({15 << 3, 5, 6 << 3 | 4}), Bytes({15 << 3, 5, 7 << 3 | 5, 1}),
        Bytes({15 << 3, 5, 1 << 3 | 7}), Bytes({15 << 3, 5, 255, 255, 255})}) {
    std::string message = broken;
    const QuestionFields said = TakeQuestionFields(message);
    EXPECT_FALSE(said.call_id);
    EXPECT_EQ(message, broken);
    EXPECT_EQ(WindowOf(broken), "");
  }
}

TEST(QuestionFields, TheWindowOfAQuestionIsItsFirstField) {
  CloseWindow question;
  question.mutable_browser_id()->set_value(300);
  question.mutable_question();
  EXPECT_EQ(WindowOf(question.SerializeAsString()),
            question.browser_id().SerializeAsString());
  EXPECT_EQ(WindowOf(""), "");
}

}  // namespace
}  // namespace rpc::grpc
