// The streams of a method that this program was not built for: its descriptor
// has come at run time, and its messages are made by a factory. For methods of
// the program's own contract there are event_subscriber.h and
// callback_answerer.h, which do the same with messages of generated classes.
//
//   DynamicEventSubscriber prices(*client, method, factory,
//                                 [](const Message& event) { ... },
//                                 [](const absl::Status& status) { ... });
//   std::unique_ptr<Message> key(factory.GetPrototype(KeyTypeOf(*method))
//                                    ->New());
//   ... fill in the key ...
//   prices.Subscribe(*key);
//
// Ownership: the user's. Destroying the object ends its stream; the end
// callback is then not called. The factory must outlive it, and the pool of the
// method both it and the client. Messages that are handed over are those of the
// factory. Reply handles may outlive the answerer, and
// then do nothing.
//
// Sequence: that of the client; reply handles are used and destroyed there too.
// The callbacks run when a frame arrives or the connection closes, never within
// an operation of the object; each may destroy the object and the client.
//
// Failure: the end callback runs once and says why the stream is over: with
// the same statuses as in event_subscriber.h and callback_answerer.h, and
// INVALID_ARGUMENT also when KeyTypeOf() knows no key. After that, and after
// End(), Subscribe() returns false.

#ifndef CORE_COMMON_RPC_TRANSPORT_DYNAMIC_STREAMS_H_
#define CORE_COMMON_RPC_TRANSPORT_DYNAMIC_STREAMS_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <functional>
#include <memory>
#include <utility>

#include "absl/status/status.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/client/owed_answer.h"

namespace rpc::transport {

// The type of what one subscribes to on a stream of `method`: that of the field
// `subscribe_to` of an event stream's requests, and of the field `browser_id`
// of a callback stream's messages. Null when the method is no stream of these
// kinds, or the field is not there or no message.
const google::protobuf::Descriptor* KeyTypeOf(
    const google::protobuf::MethodDescriptor& method);

// Receives the events of an event method. One that does not parse is ignored.
class DynamicEventSubscriber {
 public:
  using EventCallback = std::function<void(const google::protobuf::Message&)>;

  // `method` must not be null. `on_end` may be null.
  DynamicEventSubscriber(Client& client,
                         const google::protobuf::MethodDescriptor* method,
                         google::protobuf::MessageFactory& factory,
                         EventCallback on_event,
                         ClientStream::EndCallback on_end = nullptr);

  // Starts receiving the events about `key`, which is of the type KeyTypeOf().
  // False when it cannot be sent: the stream is over, or too much waits to be
  // written.
  bool Subscribe(const google::protobuf::Message& key);

  // Tells the server that no more events are wanted. The end callback runs when
  // the server has ended the stream too.
  void End() { stream_.End(); }

 private:
  const google::protobuf::Descriptor* const request_type_;
  const bool has_key_;
  google::protobuf::MessageFactory& factory_;
  ClientStream stream_;
};

// Answers the questions of a callback method.
class DynamicCallbackAnswerer {
 public:
  // Answers one question. Handles can be copied and moved. When the last handle
  // of a question is destroyed without an answer, the question is declined.
  class Reply {
   public:
    // Sends `answer`, a message of the method's type in which the response must
    // be set; its browser_id is filled in. Fails, and leaves the question open,
    // like the Answer() of CallbackAnswerer.
    absl::Status Answer(google::protobuf::Message& answer) const;

   private:
    friend class DynamicCallbackAnswerer;

    Reply(std::shared_ptr<const google::protobuf::Message> refusal,
          std::shared_ptr<OwedAnswer> owed)
        : refusal_(std::move(refusal)), owed_(std::move(owed)) {}

    // Has the question's browser_id, and nothing else.
    std::shared_ptr<const google::protobuf::Message> refusal_;
    std::shared_ptr<OwedAnswer> owed_;
  };

  using QuestionCallback =
      std::function<void(const google::protobuf::Message& question,
                         Reply reply)>;

  // `method` must not be null. `on_end` may be null.
  DynamicCallbackAnswerer(Client& client,
                          const google::protobuf::MethodDescriptor* method,
                          google::protobuf::MessageFactory& factory,
                          QuestionCallback on_question,
                          ClientStream::EndCallback on_end = nullptr);
  DynamicCallbackAnswerer(const DynamicCallbackAnswerer&) = delete;
  DynamicCallbackAnswerer& operator=(const DynamicCallbackAnswerer&) = delete;

  // Starts receiving the questions about `key`, which is of the type
  // KeyTypeOf(). False when it cannot be sent: the stream is over, or too much
  // waits to be written.
  bool Subscribe(const google::protobuf::Message& key);

  // Tells the server that no more questions are wanted. The end callback runs
  // when the server has ended the stream too.
  void End() { stream_->End(); }

 private:
  std::unique_ptr<google::protobuf::Message> NewMessage() const;
  void OnMessage(const StreamMessage& message,
                 const QuestionCallback& on_question);

  const google::protobuf::Descriptor* const type_;
  const bool has_key_;
  google::protobuf::MessageFactory& factory_;
  // The only owner: reply handles have weak pointers to it.
  const std::shared_ptr<ClientStream> stream_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_DYNAMIC_STREAMS_H_
