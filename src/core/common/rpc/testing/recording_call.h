// The controller and the completion closure of a call made by a test.

#ifndef CORE_COMMON_RPC_TESTING_RECORDING_CALL_H_
#define CORE_COMMON_RPC_TESTING_RECORDING_CALL_H_

#include <google/protobuf/service.h>

#include <functional>
#include <string>
#include <utility>

namespace torvane {

// Keeps the failure text and counts failures. It is never cancelled.
class RecordingController : public google::protobuf::RpcController {
 public:
  void Reset() override { text_.clear(); }
  bool Failed() const override { return !text_.empty(); }
  std::string ErrorText() const override { return text_; }
  void StartCancel() override {}
  void SetFailed(const std::string& text) override {
    text_ = text;
    ++failures_;
  }
  bool IsCanceled() const override { return false; }
  void NotifyOnCancel(google::protobuf::Closure*) override {}

  int failures() const { return failures_; }

 private:
  std::string text_;
  int failures_ = 0;
};

// Counts its runs, and does what the test says in each. Unlike the closures of
// protobuf it is not deleted by a run.
class CountingClosure final : public google::protobuf::Closure {
 public:
  explicit CountingClosure(std::function<void()> on_run = [] {})
      : on_run_(std::move(on_run)) {}

  void Run() override {
    ++runs_;
    on_run_();
  }
  int runs() const { return runs_; }

 private:
  const std::function<void()> on_run_;
  int runs_ = 0;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_RECORDING_CALL_H_
