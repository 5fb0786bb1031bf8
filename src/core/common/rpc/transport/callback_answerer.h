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
// decline. Handles can be copied and moved; when the last one of a question
// goes without an answer, that declines, so nobody waits for ever.
//
// Ownership, sequence and failure are those of client_stream.h: the answerer is
// the user's, callbacks run on the loop and may destroy it, and the second one
// says why there will be no more questions. Reply handles are used and
// destroyed on the loop too; they may outlive the answerer, and then do
// nothing. A question that this program cannot read is declined.

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
#include "core/common/rpc/transport/client/owed_answer.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

// T is question and answer, the request and response type of the method: it has
// a browser_id and a oneof body with the members subscribe and response.
template <typename T>
class CallbackAnswerer {
 public:
  // What the handler settles one question with.
  class Reply {
   public:
    // Sends `answer`, in which the response must be set; its browser_id is
    // filled in. INVALID_ARGUMENT without a response, FAILED_PRECONDITION when
    // the question is settled already, UNAVAILABLE when the stream is over or
    // too much waits to be written. The question is settled only by OK.
    absl::Status Answer(T answer) const {
      // A frame without one would end the process of whoever asked.
      if (answer.body_case() != T::kResponse) {
        return absl::InvalidArgumentError("the answer has no response");
      }
      *answer.mutable_browser_id() = window_;
      return owed_->Answer(answer);
    }

    // Says that there will be no answer.
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
            method,
            [this, on_question = std::move(on_question)](
                const StreamMessage& message) {
              OnMessage(message, on_question);
            },
            std::move(on_end))) {}
  CallbackAnswerer(const CallbackAnswerer&) = delete;
  CallbackAnswerer& operator=(const CallbackAnswerer&) = delete;

  // Answers for `window` from here on, or no longer; the newest answerer has
  // the window. False when the stream is over.
  bool Subscribe(const BrowserId& window) { return Send(window, true); }
  bool Unsubscribe(const BrowserId& window) { return Send(window, false); }

  // Wants no more questions; the end callback comes when the server has agreed.
  void End() { stream_->End(); }

 private:
  void OnMessage(const StreamMessage& message,
                 const QuestionCallback& on_question) {
    T question;
    const bool readable = question.ParseFromString(message.payload()) &&
                          question.body_case() != T::BODY_NOT_SET;
    T nameplate;
    *nameplate.mutable_browser_id() = question.browser_id();
    auto owed =
        std::make_shared<OwedAnswer>(stream_, nameplate, message.call_id());
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

  // Shared with nobody: reply handles only watch it.
  const std::shared_ptr<ClientStream> stream_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CALLBACK_ANSWERER_H_
