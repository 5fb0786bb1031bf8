#include "tools/rpcctl/remote_contract.h"

#include <string_view>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"

namespace rpcctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::Message;
using google::protobuf::ServiceDescriptor;

constexpr char kOwnFolder[] = "google/protobuf/";
constexpr char kOwnPackage[] = "google.protobuf";

// Keeps the first fault that is found in a file.
class FirstFault final : public DescriptorPool::ErrorCollector {
 public:
  void AddError(const std::string&,
                const std::string& element,
                const Message*,
                ErrorLocation,
                const std::string& text) override {
    if (text_.empty())
      text_ = absl::StrCat(element, ": ", text);
  }

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

bool IsOwnName(std::string_view full_name) {
  return full_name == kOwnPackage ||
         absl::StartsWith(full_name, absl::StrCat(kOwnPackage, "."));
}

// `Scope` is a file or a message.
template <typename Scope>
const Descriptor* FindOwnNameIn(const Scope& scope, int count) {
  for (int i = 0; i < count; ++i) {
    const Descriptor* message;
    if constexpr (std::is_same_v<Scope, FileDescriptor>)
      message = scope.message_type(i);
    else
      message = scope.nested_type(i);
    if (IsOwnName(message->full_name()))
      return message;
    if (const Descriptor* nested =
            FindOwnNameIn(*message, message->nested_type_count())) {
      return nested;
    }
  }
  return nullptr;
}

absl::Status Refuse(const std::string& file, std::string_view why) {
  return absl::InvalidArgumentError(
      absl::StrCat("the server's file ", file, " can't be used: ", why));
}

}  // namespace

RemoteContract::RemoteContract() : messages_(&pool_) {
  // An import that is missing is a fault, also where a file says it need not be
  // there.
  pool_.EnforceWeakDependencies(true);
}

absl::StatusOr<std::unique_ptr<RemoteContract>> RemoteContract::Build(
    const google::protobuf::FileDescriptorSet& files,
    const std::vector<std::string>& services) {
  std::unique_ptr<RemoteContract> contract(new RemoteContract);
  for (const FileDescriptorProto& file : files.file()) {
    if (absl::Status added = contract->AddFile(file); !added.ok())
      return added;
  }
  for (const std::string& service : services) {
    if (absl::Status added = contract->AddService(service); !added.ok())
      return added;
  }
  return contract;
}

absl::Status RemoteContract::AddFile(const FileDescriptorProto& file) {
  FileDescriptorProto own;
  if (absl::StartsWith(file.name(), kOwnFolder)) {
    const FileDescriptor* compiled_in =
        DescriptorPool::generated_pool()->FindFileByName(file.name());
    if (compiled_in == nullptr)
      return Refuse(file.name(), "this program has no such file");
    compiled_in->CopyTo(&own);
  }
  const bool is_own = own.has_name();
  FirstFault fault;
  const FileDescriptor* built =
      pool_.BuildFileCollectingErrors(is_own ? own : file, &fault);
  if (built == nullptr)
    return Refuse(file.name(), fault.text());
  const Descriptor* forged =
      is_own ? nullptr : FindOwnNameIn(*built, built->message_type_count());
  if (forged != nullptr) {
    return Refuse(file.name(), absl::StrCat("it declares ", forged->full_name(),
                                            ", which is not its own"));
  }
  return absl::OkStatus();
}

absl::Status RemoteContract::AddService(const std::string& name) {
  const ServiceDescriptor* service = pool_.FindServiceByName(name);
  if (service == nullptr) {
    return absl::InvalidArgumentError(
        absl::StrCat("the server's files do not declare its service ", name));
  }
  services_.push_back(service);
  return absl::OkStatus();
}

}  // namespace rpcctl
