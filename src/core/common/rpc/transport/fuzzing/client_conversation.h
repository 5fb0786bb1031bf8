// A client that uses every feature; drives the server's fuzzer, and its frames
// are recorded as seeds.
//
// What it does follows from what the server says alone, so that a conversation
// takes the same course each time.

#ifndef CORE_COMMON_RPC_TRANSPORT_FUZZING_CLIENT_CONVERSATION_H_
#define CORE_COMMON_RPC_TRANSPORT_FUZZING_CLIENT_CONVERSATION_H_

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {

class ClientConversation {
 public:
  // Which features are used.
  struct Topics {
    bool calls = true;
    bool events = true;
    bool questions = true;
  };

  // Begins at once. `client` must outlive the conversation.
  ClientConversation(Client& client, const Topics& topics);

  // Checks that whatever has begun has ended, once.
  ~ClientConversation();

 private:
  using Answerer = CallbackAnswerer<lab::Decision>;

  void BeginCalls();
  void BeginEvents();
  void BeginQuestions();
  void Call(TextCall::Method method);
  void CallMake();
  void OnMade();
  void OnEvent();
  void OnQuestion(const Answerer::Reply& reply);

  Client& client_;
  const Topics topics_;
  // Calls stay where they are.
  std::deque<TextCall> calls_;
  TextCall* parked_ = nullptr;
  std::deque<TextCall> makes_;

  std::optional<EventSubscriber<lab::Text>> subscriber_;
  std::optional<Answerer> answerer_;
  std::deque<Answerer::Reply> kept_;
  int questions_ = 0;
  int open_streams_ = 0;
  bool ended_ = false;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_FUZZING_CLIENT_CONVERSATION_H_
