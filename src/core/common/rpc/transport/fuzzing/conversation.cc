#include "core/common/rpc/transport/fuzzing/conversation.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <system_error>

namespace rpc::transport {
namespace {

using google::protobuf::io::CodedOutputStream;

constexpr size_t kMaxFrameBytes = 1 << 20;

}  // namespace

std::vector<Utterance> Cut(std::string_view bytes) {
  std::vector<Utterance> utterances;
  FrameBuffer buffer(kMaxFrameBytes);
  size_t start = 0;
  for (size_t end = 1; end <= bytes.size(); ++end) {
    buffer.Space().front() = bytes[end - 1];
    buffer.Commit(1);
    FrameView frame;
    absl::Status error;
    if (buffer.Next(&frame, &error) == FrameBuffer::kFrame) {
      utterances.push_back({std::string(bytes.substr(start, end - start)),
                            frame.kind, std::string(frame.body)});
      start = end;
    }
  }
  if (start < bytes.size()) {
    utterances.push_back(
        {std::string(bytes.substr(start)), Frame::BODY_NOT_SET, ""});
  }
  return utterances;
}

std::string WireFrame(FrameKind kind, std::string_view body) {
  std::string envelope;
  {
    google::protobuf::io::StringOutputStream stream(&envelope);
    CodedOutputStream output(&stream);
    output.WriteTag(static_cast<uint32_t>(kind) << 3 | 2);
    output.WriteVarint32(static_cast<uint32_t>(body.size()));
    output.WriteRaw(body.data(), static_cast<int>(body.size()));
  }
  std::string bytes;
  {
    google::protobuf::io::StringOutputStream stream(&bytes);
    CodedOutputStream output(&stream);
    output.WriteVarint32(static_cast<uint32_t>(envelope.size()));
    output.WriteString(envelope);
  }
  return bytes;
}

std::string_view WriteSome(asio::local::stream_protocol::socket& socket,
                           std::string_view bytes) {
  std::error_code error;
  while (!bytes.empty() && !error) {
    bytes.remove_prefix(
        socket.write_some(asio::buffer(bytes.data(), bytes.size()), error));
  }
  return bytes;
}

std::string ReadAll(asio::local::stream_protocol::socket& socket) {
  std::string bytes;
  char chunk[4096];
  std::error_code error;
  while (!error) {
    bytes.append(chunk, socket.read_some(asio::buffer(chunk), error));
  }
  return bytes;
}

}  // namespace rpc::transport
