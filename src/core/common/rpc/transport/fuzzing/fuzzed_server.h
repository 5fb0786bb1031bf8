// A server of which a fuzzer is the only client.
//
// Whatever the client says, what the server says keeps to the protocol: that is
// checked here, frame by frame, from what went over the socket alone.

#ifndef CORE_COMMON_RPC_TRANSPORT_FUZZING_FUZZED_SERVER_H_
#define CORE_COMMON_RPC_TRANSPORT_FUZZING_FUZZED_SERVER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/transport/fuzzing/conversation.h"
#include "core/common/rpc/transport/fuzzing/fuzzed_service.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class FuzzedServer {
 public:
  FuzzedServer();

  // Hangs up, takes everything down and checks that nothing is left.
  ~FuzzedServer();

  // Says something and lets the server handle it.
  void Say(const Utterance& utterance);

  // Checks that all is answered that can be, provided that the connection is
  // still open.
  void CheckBalance() const;

  bool welcomed() const { return welcomed_; }
  bool refused() const { return refused_; }

 private:
  // What the server owes for the frames sent.
  void Note(const Utterance& utterance);
  void RunAndListen();
  void Hear(const Utterance& utterance);
  void HearWelcome(const WelcomeFrame& welcome);
  void HearReply(const ReplyFrame& reply);
  void HearData(const StreamDataFrame& data);
  void HearEnd(const StreamEndFrame& end);
  void NoteReceived(std::map<uint64_t, int>& debts, uint64_t id);

  loop::Loop loop_;
  FuzzedService service_;
  std::unique_ptr<Server> server_;
  asio::local::stream_protocol::socket socket_;

  bool welcomed_ = false;
  bool refused_ = false;
  // Replies, and ends of streams, that are to come, by id.
  std::map<uint64_t, int> replies_;
  std::map<uint64_t, int> ends_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_FUZZING_FUZZED_SERVER_H_
