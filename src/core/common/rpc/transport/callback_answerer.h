// Answers the questions of one callback method, for the windows that it
// subscribes to.
//
//   using Answerer = rpc::transport::CallbackAnswerer<rpc::CloseWindow>;
//   Answerer answerer(
//       *client,
//       rpc::BrowserWindow::descriptor()->FindMethodByName("OnCloseWindow"),
//       [](const rpc::CloseWindow& question, Answerer::Reply reply) {
//         rpc::CloseWindow answer;
//         answer.mutable_response()->set_allowed(true);
//         reply.Answer(std::move(answer)).IgnoreError();
//       });
//   answerer.Subscribe(window);
//
// The handler may answer at once, or keep the reply handle and answer later, or
// decline. Handles can be copied and moved. When the last handle of a question
// is destroyed without an answer, the question is declined, so that the asker
// does not wait for ever.
//
// Ownership: the user's. Destroying the answerer ends its stream; the end
// callback is then not called. Reply handles may outlive the answerer, and then
// do nothing.
//
// Sequence: that of the client; reply handles are used and destroyed there too.
// The callbacks run when a frame arrives or the connection closes, never within
// an operation of the answerer; each may destroy the answerer and the client.
//
// Failure: the end callback runs once and says why there will be no more
// questions: OK when both sides have ended the stream, INVALID_ARGUMENT when
// the method is null, no callback stream, or one of other messages than T,
// UNIMPLEMENTED when the server has no such stream, RESOURCE_EXHAUSTED beyond a
// limit, CANCELLED when the client was destroyed, UNAVAILABLE when the server
// has gone. After that, and after End(), Subscribe() and Unsubscribe() return
// false. A question that does not parse, or is of an unknown kind, is declined.
// When too much waits to be written for declining, the connection is closed,
// since the question would stay pending for ever.

#ifndef CORE_COMMON_RPC_TRANSPORT_CALLBACK_ANSWERER_H_
#define CORE_COMMON_RPC_TRANSPORT_CALLBACK_ANSWERER_H_

#include <google/protobuf/descriptor.h>

#include <functional>
#include <memory>
#include <utility>

#include "absl/status/status.h"
#include "browser_id.pb.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/client/method_check.h"
#include "core/common/rpc/transport/client/owed_answer.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

// T is question and answer, the request and response type of the method: it has
// a browser_id and a oneof body with the members subscribe and response.
template <typename T>
class CallbackAnswerer {
 public:
  // Answers or declines one question.
  class Reply {
   public:
    // Sends `answer`, in which the response must be set; its browser_id is
    // filled in. INVALID_ARGUMENT without a response, FAILED_PRECONDITION when
    // the question has been answered or declined already, UNAVAILABLE when the
    // stream is over or too much waits to be written. Unless this returns OK
    // the question stays open, and can be answered again.
    absl::Status Answer(T answer) const {
      // An answer without a response would end the process that asked.
      if (answer.body_case() != T::kResponse) {
        return absl::InvalidArgumentError("the answer has no response");
      }
      *answer.mutable_browser_id() = window_;
      return owed_->Answer(answer);
    }

    // Tells the server that there will be no answer.
    void Decline() const { owed_->Decline(); }

   private:
    friend class CallbackAnswerer;

    Reply(BrowserId window, std::shared_ptr<OwedAnswer> owed)
        : window_(std::move(window)), owed_(std::move(owed)) {}

    BrowserId window_;
    std::shared_ptr<OwedAnswer> owed_;
  };

  using QuestionCallback = std::function<void(const T& question, Reply reply)>;

  // `on_end` may be null.
  CallbackAnswerer(Client& client,
                   const google::protobuf::MethodDescriptor* method,
                   QuestionCallback on_question,
                   ClientStream::EndCallback on_end = nullptr)
      : stream_(std::make_shared<ClientStream>(
            client,
            CheckCallbackMethod(method, *T::descriptor()),
            [this, on_question = std::move(on_question)](
                const StreamMessage& message) {
              OnMessage(message, on_question);
            },
            std::move(on_end))) {}
  CallbackAnswerer(const CallbackAnswerer&) = delete;
  CallbackAnswerer& operator=(const CallbackAnswerer&) = delete;

  // Starts or stops receiving the questions about `window`. If several
  // answerers subscribe to a window, the newest gets its questions. False when
  // it cannot be sent: the stream is over, or too much waits to be written.
  bool Subscribe(const BrowserId& window) { return Send(window, true); }
  bool Unsubscribe(const BrowserId& window) { return Send(window, false); }

  // Tells the server that no more questions are wanted. The end callback runs
  // when the server has ended the stream too.
  void End() { stream_->End(); }

 private:
  void OnMessage(const StreamMessage& message,
                 const QuestionCallback& on_question) {
    T question;
    const bool readable = question.ParseFromString(message.payload()) &&
                          question.body_case() != T::BODY_NOT_SET;
    T refusal;
    *refusal.mutable_browser_id() = question.browser_id();
    // Declines when it is destroyed, so also right here.
    auto owed =
        std::make_shared<OwedAnswer>(stream_, refusal, message.call_id());
    if (readable) {
      on_question(question, Reply(question.browser_id(), std::move(owed)));
    }
  }

  bool Send(const BrowserId& window, bool subscribe) {
    T subscription;
    *subscription.mutable_browser_id() = window;
    subscription.set_subscribe(subscribe);
    StreamMessage message;
    subscription.SerializeToString(message.mutable_payload());
    return stream_->Send(message);
  }

  // The only owner: reply handles have weak pointers to it.
  const std::shared_ptr<ClientStream> stream_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CALLBACK_ANSWERER_H_
