// What a command works with: the contract that it goes by, and a connection to
// the server.
//
// Whether the contract is the program's own or the server's, a command does the
// same: it looks its method up, which connects only where the server has to be
// asked, checks what the user has typed, and connects.
//
// Ownership: the caller's. Owns the loop, the client, and the descriptors that
// the server has sent. The program and the options must outlive it.
//
// Sequence: that of its loop, the main thread.
//
// Failure: operations that return an ExitCode have said why on standard error
// when it is not kSuccess.

#ifndef TOOLS_RPCCTL_SESSION_H_
#define TOOLS_RPCCTL_SESSION_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <chrono>
#include <memory>
#include <string_view>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/stream/method_kind.h"
#include "core/common/rpc/transport/client.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/options.h"
#include "tools/rpcctl/program.h"
#include "tools/rpcctl/remote_contract.h"

namespace rpcctl {

// How a program introduces itself, and for how long it waits for the welcome.
rpc::transport::ClientOptions ClientOptionsFor(const Options& options);

// Prints why a call or a stream of `client` has failed. Returns kNoConnection
// if that was because the connection is lost, otherwise kCallFailed.
ExitCode FailOn(const rpc::transport::Client& client,
                const absl::Status& status);

class Session {
 public:
  // --timeout begins here: it covers connecting and the calls after it.
  Session(const Program& program, const Options& options);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  // Connects, unless that is done. Blocks for what is left of --timeout.
  ExitCode Connect();

  // Gets the contract: the program's own, or else, connecting first, the one
  // that the server sends.
  ExitCode LoadContract();

  // Loads the contract, and finds the method of that name and kind in it.
  ExitCode FindMethod(std::string_view name,
                      torvane::MethodKind kind,
                      const google::protobuf::MethodDescriptor** method);

  // An empty message of a type of the contract.
  std::unique_ptr<google::protobuf::Message> NewMessage(
      const google::protobuf::Descriptor* type) const;

  // Calls a unary method and waits for its response, for what is left of
  // --timeout. Connected.
  absl::Status Call(const google::protobuf::MethodDescriptor* method,
                    const google::protobuf::Message& request,
                    google::protobuf::Message* response);

  // --timeout begins anew.
  void RestartTimeout();

  // What is left of --timeout; 0 or less when nothing is.
  std::chrono::milliseconds TimeLeft() const;

  // Loaded.
  const Contract& contract() const { return contract_; }

  // What the contract declares, with comments if there are any. Loaded.
  const google::protobuf::DescriptorPool& declarations() const;

  const Program& program() const { return program_; }

  const Options& options() const { return options_; }
  rpc::loop::Loop& loop() { return loop_; }

  // Connected.
  rpc::transport::Client& client() { return *client_; }

 private:
  const Program& program_;
  const Options& options_;
  rpc::loop::Loop loop_;
  rpc::loop::Clock::time_point end_;
  // Declared before the client, which has pointers to its descriptors.
  std::unique_ptr<RemoteContract> remote_contract_;
  Contract contract_;
  std::unique_ptr<rpc::transport::Client> client_;
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_SESSION_H_
