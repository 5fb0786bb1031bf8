// The real host and real clients, each in a process of its own.

#ifndef TOOLS_WINDOWCTL_END_TO_END_TEST_SUPPORT_H_
#define TOOLS_WINDOWCTL_END_TO_END_TEST_SUPPORT_H_

#include <signal.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/private_folder.h"
#include "gtest/gtest.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/process_test_support.h"

namespace windowctl {

using rpcctl::kCallFailed;
using rpcctl::kNoConnection;
using rpcctl::kSuccess;
using rpcctl::kUsage;
using rpcctl::Process;
using rpcctl::RunToEnd;

class EndToEndTest : public ::testing::Test {
 protected:
  std::vector<std::string> HostWords(std::vector<std::string> flags) const {
    flags.insert(flags.begin(), {WINDOW_HOST, "--socket", socket_});
    return flags;
  }
  std::vector<std::string> ClientWords(std::vector<std::string> words) const {
    words.insert(words.begin(), {WINDOWCTL, "--socket", socket_});
    return words;
  }

  // Returns when the host accepts connections.
  void StartHost(std::vector<std::string> flags = {}) {
    host_ = std::make_unique<Process>(HostWords(std::move(flags)));
    EXPECT_EQ("window_host: ready at " + socket_, host_->ReadLine());
  }

  Process::Result StopHost(int signal = SIGTERM) {
    host_->Signal(signal);
    return host_->Wait();
  }

  Process::Result RunClient(std::vector<std::string> words) const {
    return RunToEnd(ClientWords(std::move(words)));
  }

  // Starts a windowctl that opens a stream. Returns when it is subscribed.
  Process& StartClient(std::vector<std::string> words,
                       Process::Terminal terminal = Process::Terminal::kNone) {
    clients_.push_back(
        std::make_unique<Process>(ClientWords(std::move(words)), terminal));
    EXPECT_EQ("windowctl: subscribed", clients_.back()->ReadErrorLine());
    return *clients_.back();
  }

  // Expects the call to succeed, and returns what it prints.
  std::string Call(const std::string& method, const std::string& json) const {
    const Process::Result result = RunClient({"call", method, json});
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
    return result.output;
  }

  const torvane::PrivateFolder folder_;
  const std::string socket_ = folder_.File("host.sock");
  std::unique_ptr<Process> host_;
  std::vector<std::unique_ptr<Process>> clients_;
};

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_END_TO_END_TEST_SUPPORT_H_
