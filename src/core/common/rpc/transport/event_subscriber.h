// Receives the events of one event method, for the keys that it subscribes to.
//
//   rpc::transport::EventSubscriber<rpc::BrowserWindowClosed> closed(
//       *client, rpc::BrowserWindow::descriptor()->FindMethodByName(
//                    "WhenBrowserWindowClosed"),
//       [](const rpc::BrowserWindowClosed& event) { ... },
//       [](const absl::Status& status) { ... });
//   BrowserId window;
//   window.set_value(7);
//   closed.Subscribe(window);
//
// Ownership: the user's. Destroying the subscriber ends its stream; the end
// callback is then not called.
//
// Sequence: that of the client. The callbacks run when a frame arrives or the
// connection closes, never within an operation of the subscriber; each may
// destroy the subscriber and the client.
//
// Failure: the end callback runs once and says why there will be no more
// events: OK when both sides have ended the stream, INVALID_ARGUMENT when the
// method is null, no event stream, or one of other events than T, UNIMPLEMENTED
// when the server has no such stream, RESOURCE_EXHAUSTED beyond a limit,
// CANCELLED when the client was destroyed, UNAVAILABLE when the server has
// gone. After that, and after End(), Subscribe() and Unsubscribe() return
// false. An event that does not parse is ignored.

#ifndef CORE_COMMON_RPC_TRANSPORT_EVENT_SUBSCRIBER_H_
#define CORE_COMMON_RPC_TRANSPORT_EVENT_SUBSCRIBER_H_

#include <google/protobuf/descriptor.h>

#include <functional>
#include <utility>

#include "browser_id.pb.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/client/method_check.h"
#include "rpc/event_subscription.pb.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

// T is the event, the response type of the method.
template <typename T>
class EventSubscriber {
 public:
  using EventCallback = std::function<void(const T&)>;

  // `on_end` may be null.
  EventSubscriber(Client& client,
                  const google::protobuf::MethodDescriptor* method,
                  EventCallback on_event,
                  ClientStream::EndCallback on_end = nullptr)
      : stream_(
            client,
            CheckEventMethod(method, *T::descriptor()),
            [on_event = std::move(on_event)](const ReceivedMessage& message) {
              if (const T* event = message.As<T>()) {
                on_event(*event);
              }
            },
            std::move(on_end)) {}

  // Starts or stops receiving the events about `key`. False when it cannot be
  // sent: the stream is over, or too much waits to be written.
  bool Subscribe(const BrowserId& key) {
    rpc::EventSubscription subscription;
    *subscription.mutable_subscribe_to() = key;
    return Send(subscription);
  }
  bool Unsubscribe(const BrowserId& key) {
    rpc::EventSubscription subscription;
    *subscription.mutable_unsubscribe_from() = key;
    return Send(subscription);
  }

  // Tells the server that no more events are wanted. The end callback runs when
  // the server has ended the stream too.
  void End() { stream_.End(); }

 private:
  bool Send(const rpc::EventSubscription& subscription) {
    StreamMessage message;
    subscription.SerializeToString(message.mutable_payload());
    return stream_.Send(message);
  }

  ClientStream stream_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_EVENT_SUBSCRIBER_H_
