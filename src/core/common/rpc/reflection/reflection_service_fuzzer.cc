// Asks for files with any requests, of a server whose services change
// meanwhile: the answer is always the part that was asked for, or says what is
// wrong.
//
// The input is a list of requests: one byte says which services there are, the
// next one how long the request is.

#include <google/protobuf/descriptor.pb.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/testing/recording_call.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::reflection {
namespace {

using google::protobuf::FileDescriptorSet;
using Services = ReflectionService::Services;

Services ServicesOf(uint8_t choice) {
  Services services;
  if (choice & 1) {
    services.push_back(BrowserWindowRpc::descriptor());
  }
  if (choice & 2) {
    services.push_back(ServerReflectionRpc::descriptor());
  }
  return services;
}

bool IsOffered(const Services& services, const std::string& name) {
  return std::any_of(
      services.begin(), services.end(),
      [&name](const auto* service) { return service->full_name() == name; });
}

struct Answer {
  FilesPart part;
  absl::Status status;
};

Answer Ask(ReflectionService& service, const FilesRequest& request) {
  Answer answer;
  serving::CallContext context;
  torvane::CountingClosure done;
  service.GetFiles(&context, &request, &answer.part, &done);
  EXPECT_EQ(done.runs(), 1);
  answer.status = context.status();
  return answer;
}

// All parts, put together as a client does.
std::string Whole(ReflectionService& service, const std::string& name) {
  std::string bytes;
  FilesRequest request;
  request.set_service(name);
  uint64_t total = 0;
  do {
    request.set_offset(bytes.size());
    const Answer answer = Ask(service, request);
    EXPECT_TRUE(answer.status.ok()) << answer.status;
    total = answer.part.total_bytes();
    if (answer.part.bytes().empty()) {
      break;
    }
    bytes += answer.part.bytes();
  } while (bytes.size() < total);
  EXPECT_EQ(bytes.size(), total);
  return bytes;
}

void Check(ReflectionService& service,
           const Services& services,
           const FilesRequest& request) {
  const Answer answer = Ask(service, request);
  if (!request.service().empty() && !IsOffered(services, request.service())) {
    EXPECT_TRUE(absl::IsNotFound(answer.status)) << answer.status;
    return;
  }
  const std::string whole = Whole(service, request.service());
  FileDescriptorSet files;
  EXPECT_TRUE(files.ParseFromString(whole));
  EXPECT_EQ(files.file().empty(), services.empty());
  if (request.offset() > whole.size()) {
    EXPECT_TRUE(absl::IsOutOfRange(answer.status)) << answer.status;
    return;
  }
  EXPECT_TRUE(answer.status.ok()) << answer.status;
  EXPECT_EQ(answer.part.total_bytes(), whole.size());
  EXPECT_EQ(answer.part.bytes(),
            whole.substr(request.offset(), ReflectionService::kMaxPartBytes));
}

void Fuzz(std::string_view input) {
  Services services;
  ReflectionService service([&services] { return services; });
  while (input.size() >= 2) {
    services = ServicesOf(static_cast<uint8_t>(input[0]));
    const size_t size = static_cast<uint8_t>(input[1]);
    input.remove_prefix(2);
    FilesRequest request;
    // Others do not get as far as the service.
    if (request.ParseFromString(std::string(input.substr(0, size)))) {
      Check(service, services, request);
    }
    input.remove_prefix(std::min(size, input.size()));
  }
}

}  // namespace
}  // namespace rpc::reflection

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  rpc::reflection::Fuzz(
      std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
