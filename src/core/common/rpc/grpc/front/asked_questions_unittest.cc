#include "core/common/rpc/grpc/front/asked_questions.h"

#include <gtest/gtest.h>

#include <string>

namespace rpc::grpc {
namespace {

TEST(AskedQuestions, TheOnlyOneAboutAWindowIsFound) {
  AskedQuestions asked;
  asked.OnAsked("7", 1);
  asked.OnAsked("8", 2);
  EXPECT_EQ(*asked.Only("7"), 1);
  EXPECT_EQ(*asked.Only("8"), 2);
}

TEST(AskedQuestions, WithoutOneOrWithSeveralThereIsNone) {
  AskedQuestions asked;
  EXPECT_EQ(asked.Only("7").status(),
            absl::InvalidArgumentError("an answer without call_id, while no "
                                       "question about its window waits"));
  asked.OnAsked("7", 1);
  asked.OnAsked("7", 2);
  EXPECT_EQ(asked.Only("7").status(),
            absl::InvalidArgumentError(
                "an answer without call_id, while several questions about its "
                "window wait: repeat the call_id of the question, field 15"));
}

TEST(AskedQuestions, WhatIsSettledWaitsNoLonger) {
  AskedQuestions asked;
  asked.OnAsked("7", 1);
  asked.OnAsked("7", 2);
  asked.OnSettled("8", 1);
  asked.OnSettled("7", 3);
  EXPECT_FALSE(asked.Only("7").ok());
  asked.OnSettled("7", 1);
  EXPECT_EQ(*asked.Only("7"), 2);
}

TEST(AskedQuestions, WhoUnsubscribesIsAskedNothing) {
  AskedQuestions asked;
  asked.OnAsked("7", 1);
  asked.OnAsked("8", 2);
  asked.OnUnsubscribed("7");
  EXPECT_FALSE(asked.Only("7").ok());
  EXPECT_EQ(*asked.Only("8"), 2);
}

TEST(AskedQuestions, TheOldestOfTooManyAreForgotten) {
  AskedQuestions asked;
  asked.OnAsked("old", 1);
  for (size_t i = 1; i < AskedQuestions::kRemembered; ++i) {
    asked.OnAsked("new", 2);
  }
  EXPECT_TRUE(asked.Only("old").ok());
  asked.OnAsked("new", 3);
  EXPECT_FALSE(asked.Only("old").ok());
}

}  // namespace
}  // namespace rpc::grpc
