#include "core/common/rpc/transport/wire/turns.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace rpc::transport {
namespace {

class TurnsTest : public ::testing::Test {
 protected:
  Turns& turns() { return asio::use_service<Turns>(*context_); }
  void Add(char name) {
    turns().Add([this, name] { order_ += name; });
  }
  void Post(char name) {
    asio::post(*context_, [this, name] { order_ += name; });
  }

  std::optional<asio::io_context> context_{std::in_place};
  std::string order_;
};

TEST_F(TurnsTest, TheLoopTurnsToOthersAfterEachOne) {
  Add('a');
  Add('b');
  Add('c');
  Post('1');
  turns().Add([this] { Post('2'); });
  context_->run();
  EXPECT_EQ(order_, "a1bc2");
}

TEST_F(TurnsTest, WhoHasHadATurnGoesBehindThoseThatWait) {
  turns().Add([this] {
    order_ += 'a';
    Add('c');
  });
  Add('b');
  context_->run();
  EXPECT_EQ(order_, "abc");
}

TEST_F(TurnsTest, OthersHaveTheirTurnsWithinOneThatRunsTheLoop) {
  turns().Add([this] {
    order_ += '(';
    context_->poll();
    order_ += ')';
  });
  Add('b');
  context_->run();
  EXPECT_EQ(order_, "(b)");
}

TEST_F(TurnsTest, WhatWaitsGoesWithTheLoopAndIsNotRun) {
  const auto held = std::make_shared<int>();
  turns().Add([this, held] { order_ += 'a'; });
  turns().Add([this, held] { order_ += 'b'; });
  context_.reset();
  EXPECT_EQ(order_, "");
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace rpc::transport
