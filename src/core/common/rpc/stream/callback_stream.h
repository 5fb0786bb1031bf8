// A stream on which the browser asks the client and waits for the answer.
//
// Some decisions are the client's: may this command run, may this window
// close? A client opens a callback stream and subscribes, window by window, as
// the one who answers for it. T is question and answer in one message:
//
//   message T {
//     BrowserId browser_id = 1;
//     oneof body {
//       bool subscribe = 2;    // client: start or stop answering for it
//       Question question = 3; // browser
//       Response response = 4; // client
//     }
//   }
//
//   client ── subscribe: true ──> OnNext ──> stream_map_[window] = stream
//   client <── question, call id ── stream <── Ask(question, call)
//   client ── response, same id ──> OnNext ──> call.response_callback(answer)
//
// A generated service opens the streams. The browser asks:
//
//   rpc::CloseWindow question;
//   question.mutable_browser_id()->set_value(7);
//   bool asked = torvane::CallbackStream<rpc::CloseWindow>::Ask(
//       question, {.response_callback = [](rpc::CloseWindow& answer) {...},
//                  .error_callback = [](torvane::StreamCallError e) {...}});
//
// Ownership: the transport owns the stream. The registry and the table of
// pending calls each own their keys, copies of a BrowserId; the registry points
// to streams that it does not own, so a stream must see OnCompleted before it
// is destroyed. Answers belong to the stream and are gone when the callback
// returns.
//
// Sequence: everything here, destruction included, runs on the one sequence of
// the service. Nothing is locked. Callbacks run inside OnNext, OnError,
// OnCompleted and CancelPendingRequests, while their call is still in the
// table: a callback must not ask about the same window, nor cancel its calls.
//
// Failure: a question ends exactly once: answered, failed by the client, or
// cancelled by the end of the subscription or of the stream. No timer ends it.
// A payload that does not parse is handled as far as it parsed. A data frame
// that neither subscribes nor answers ends the process.

#ifndef CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_H_
#define CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "base/immediate_crash.h"
#include "base/logging.h"
#include "base/memory/raw_ptr.h"
#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/message_comparator.h"
#include "core/common/rpc/stream/service.h"
#include "rpc/transport/stream_message.pb.h"

namespace torvane {

// Why a question ended without an answer.
enum class StreamCallError : int32_t {
  // The client unsubscribed the window, or the stream ended, before an answer
  // came.
  kCancelled = 1,
  // The client sent an error frame for the question.
  kRemoteError = 2,
};

template <typename T>
class CallbackStream : public AbstractStream {
 public:
  // A question that waits for its answer. Exactly one of the callbacks is
  // called, once; both must be set.
  struct StreamCall {
    // Takes the client's answer, the whole T.
    std::function<void(T&)> response_callback;
    std::function<void(StreamCallError)> error_callback;
  };

  using StreamMap = std::
      map<const google::protobuf::Message*, CallbackStream*, MessageComparator>;

  // `service` and `method` must outlive the stream.
  CallbackStream(Service* service,
                 const google::protobuf::MethodDescriptor* method,
                 StreamChannel channel)
      : AbstractStream(std::move(channel)),
        service_(service),
        method_(method) {}

  // Calls no callback of calls that are still pending; after OnCompleted there
  // are none.
  ~CallbackStream() override = default;

  // Sends `question` to the client that answers for the question's window. When
  // no client can be reached, returns false and calls none of the callbacks.
  static bool Ask(const T& question, StreamCall call) {
    const auto entry = stream_map_.find(&question.browser_id());
    if (entry == stream_map_.end())
      return false;
    return entry->second->Put(question, std::move(call));
  }

  // AbstractStream:

  // One subscription or answer.
  void OnNext(rpc::transport::StreamMessage* message) override {
    const std::unique_ptr<T> frame = Decode(*message);
    switch (frame->body_case()) {
      case T::kResponse:
        EndCall(frame->browser_id(), message->call_id(),
                [&frame](const StreamCall& call) {
                  call.response_callback(*frame);
                });
        return;
      case T::kSubscribe:
        if (frame->subscribe())
          return Subscribe(frame->browser_id());
        Unsubscribe(frame->browser_id());
        return CancelPendingRequests(frame->browser_id());
      default:
        base::ImmediateCrash();
    }
  }

  // Fails the question that the frame's window and call id name.
  void OnError(rpc::transport::StreamMessage* message) override {
    const std::unique_ptr<T> frame = Decode(*message);
    EndCall(frame->browser_id(), message->call_id(),
            [](const StreamCall& call) {
              call.error_callback(StreamCallError::kRemoteError);
            });
  }

  void OnCompleted() override {
    is_completing_ = true;
    // Collected first, since both loops below remove entries from the maps.
    std::vector<const google::protobuf::Message*> pending;
    for (const auto& [key, calls] : pending_calls_)
      pending.push_back(key);
    for (const google::protobuf::Message* key : pending)
      CancelPendingRequests(*key);

    std::set<const google::protobuf::Message*> bound;
    for (const auto& [key, stream] : stream_map_) {
      if (stream == this)
        bound.insert(key);
    }
    for (const google::protobuf::Message* key : bound)
      Unsubscribe(*key);
    Complete();
  }

  // Removes `key`, whichever stream answered for it. Pending calls stay.
  void Unsubscribe(const google::protobuf::Message& key) {
    const auto entry = stream_map_.find(&key);
    if (entry != stream_map_.end())
      EraseWithKey(stream_map_, entry);
  }

  // Ends all pending calls about `key` with kCancelled, in the order of their
  // ids. `key` may be the key that the table owns; it is then deleted.
  void CancelPendingRequests(const google::protobuf::Message& key) {
    const auto entry = pending_calls_.find(&key);
    if (entry == pending_calls_.end())
      return;
    for (const auto& [call_id, pending_call] : entry->second) {
      const StreamCall call = pending_call;
      call.error_callback(StreamCallError::kCancelled);
    }
    EraseWithKey(pending_calls_, entry);
  }

  // Makes this stream the one that answers for `key`, of which the registry
  // keeps a copy. A stream that answered for it until now is not told, and
  // keeps its pending calls.
  void Subscribe(const google::protobuf::Message& key) {
    const auto entry = stream_map_.find(&key);
    if (entry == stream_map_.end()) {
      stream_map_.emplace(OwnedCopy(key), this);
      return;
    }
    if (entry->second == this)
      return;
    // Log readers find this record by its line: it must stay on line 194.
    LOG(WARNING) << "The subscriber is already associated with another stream. "
                 << key.ShortDebugString();
    entry->second = this;
  }

  // The registry: which stream answers for which window.
  static StreamMap stream_map_;

 private:
  friend struct CallbackStreamTestPeer;

  // By window, then by call id. The inner map is never empty.
  using PendingCalls = std::map<const google::protobuf::Message*,
                                std::map<int64_t, StreamCall>,
                                MessageComparator>;

  static google::protobuf::Message* OwnedCopy(
      const google::protobuf::Message& key) {
    google::protobuf::Message* copy = key.New();
    copy->CopyFrom(key);
    return copy;
  }

  // Removes an entry, then deletes its key.
  template <typename Map>
  static void EraseWithKey(Map& map, typename Map::iterator entry) {
    const google::protobuf::Message* stored_key = entry->first;
    map.erase(entry);
    delete stored_key;
  }

  std::unique_ptr<T> Decode(const rpc::transport::StreamMessage& message) {
    std::unique_ptr<T> frame(
        static_cast<T*>(service_->GetResponsePrototype(method_).New()));
    frame->ParseFromString(message.payload());
    return frame;
  }

  bool Put(const T& question, StreamCall call) {
    // OnCompleted has begun: a question asked now would never be answered.
    if (is_completing_)
      return false;
    // A copy, since `question` may be destroyed by what Send() leads to.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const auto key = question.browser_id();
    const int64_t call_id = next_call_id_++;
    rpc::transport::StreamMessage frame;
    frame.set_call_id(call_id);
    question.SerializeToString(frame.mutable_payload());

    // Recorded before sending, since the answer may come within Send().
    auto entry = pending_calls_.find(&key);
    if (entry == pending_calls_.end())
      entry = pending_calls_.try_emplace(OwnedCopy(key)).first;
    entry->second.emplace(call_id, std::move(call));
    // When Send() fails, the call is removed unused. If it is gone already, it
    // ended within Send(), its callback has run, and the question counts as
    // put.
    return Send(frame) || !EndCall(key, call_id, [](const StreamCall&) {});
  }

  // Passes the pending call to `settle` and then removes it. Returns false when
  // there is no such call.
  template <typename Settle>
  bool EndCall(const google::protobuf::Message& key,
               int64_t call_id,
               Settle settle) {
    const auto entry = pending_calls_.find(&key);
    if (entry == pending_calls_.end())
      return false;
    std::map<int64_t, StreamCall>& calls = entry->second;
    const auto call = calls.find(call_id);
    const bool is_pending = call != calls.end();
    if (is_pending) {
      settle(call->second);
      calls.erase(call);
    }
    if (calls.empty())
      EraseWithKey(pending_calls_, entry);
    return is_pending;
  }

  const raw_ptr<Service> service_;
  const raw_ptr<const google::protobuf::MethodDescriptor> method_;
  PendingCalls pending_calls_;
  int64_t next_call_id_ = 1;
  bool is_completing_ = false;
};

template <typename T>
typename CallbackStream<T>::StreamMap CallbackStream<T>::stream_map_;

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_CALLBACK_STREAM_H_
