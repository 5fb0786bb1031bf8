#include "core/common/rpc/transport/asked_questions.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstddef>
#include <string>

#include "browser_id.pb.h"

namespace rpc::transport {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

// What the generator holds every callback message to.
constexpr int kSubscribeField = 2;
constexpr int kResponseField = 4;

constexpr uint32_t kSubscribeTag =
    WireFormatLite::MakeTag(kSubscribeField, WireFormatLite::WIRETYPE_VARINT);
constexpr uint32_t kResponseTag =
    WireFormatLite::MakeTag(kResponseField,
                            WireFormatLite::WIRETYPE_LENGTH_DELIMITED);

// Merges the message that comes next in `input` into `id`.
bool MergeId(CodedInputStream& input, BrowserId& id) {
  const CodedInputStream::Limit limit = input.ReadLengthAndPushLimit();
  const bool read =
      id.MergePartialFromCodedStream(&input) && input.ConsumedEntireMessage();
  input.PopLimit(limit);
  return read;
}

}  // namespace

std::unique_ptr<AskedQuestions> AskedQuestions::MakeFor(
    const google::protobuf::MethodDescriptor& method,
    size_t& total) {
  if (method.input_type() != method.output_type()) {
    return nullptr;
  }
  const FieldDescriptor* window =
      method.output_type()->FindFieldByName("browser_id");
  if (window == nullptr) {
    return nullptr;
  }
  return std::unique_ptr<AskedQuestions>(new AskedQuestions(
      method,
      WireFormatLite::MakeTag(window->number(),
                              WireFormatLite::WIRETYPE_LENGTH_DELIMITED),
      total));
}

AskedQuestions::~AskedQuestions() {
  total_ -= pending_.size();
}

void AskedQuestions::OnSent(const StreamMessage& message) {
  if (message.call_id() != 0) {
    const bool is_new =
        pending_
            .insert_or_assign(message.call_id(),
                              Question{Read(message).window, Clock::now()})
            .second;
    total_ += is_new ? 1 : 0;
  }
}

void AskedQuestions::OnData(const StreamMessage& message) {
  if (pending_.empty()) {
    return;
  }
  const Envelope envelope = Read(message);
  if (envelope.body == Body::kResponse) {
    Settle(message.call_id(), envelope.window);
  } else if (envelope.body == Body::kRelease) {
    Release(envelope.window);
  }
}

void AskedQuestions::OnError(const StreamMessage& message) {
  Settle(message.call_id(), Read(message).window);
}

void AskedQuestions::Report(Clock::time_point now,
                            ConnectionReport& report) const {
  report.questions += pending_.size();
  size_t left = kReportedQuestions;
  for (const auto& [call_id, question] : pending_) {
    if (left-- == 0) {
      return;
    }
    report.oldest_questions.push_back(
        {method_.full_name(), question.window, now - question.asked});
  }
}

void AskedQuestions::Settle(int64_t call_id, int64_t window) {
  const auto question = pending_.find(call_id);
  if (question != pending_.end() && question->second.window == window) {
    pending_.erase(question);
    --total_;
  }
}

void AskedQuestions::Release(int64_t window) {
  total_ -= std::erase_if(pending_, [window](const auto& question) {
    return question.second.window == window;
  });
}

// By hand, since parsing each message whole only to know its window would cost
// as much as all else that happens to it here.
AskedQuestions::Envelope AskedQuestions::Read(
    const StreamMessage& message) const {
  const std::string& payload = message.payload();
  CodedInputStream input(reinterpret_cast<const uint8_t*>(payload.data()),
                         static_cast<int>(payload.size()));
  BrowserId window;
  Envelope envelope;
  bool readable = true;
  for (uint32_t tag; readable && (tag = input.ReadTag()) != 0;) {
    if (tag == window_tag_) {
      readable = MergeId(input, window);
    } else if (tag == kSubscribeTag) {
      uint64_t subscribe;
      readable = input.ReadVarint64(&subscribe);
      if (readable) {
        envelope.body = subscribe != 0 ? Body::kSubscribe : Body::kRelease;
      }
    } else {
      envelope.body = tag == kResponseTag ? Body::kResponse : envelope.body;
      readable = WireFormatLite::SkipField(&input, tag);
    }
  }
  envelope.window = window.value();
  return envelope;
}

}  // namespace rpc::transport
