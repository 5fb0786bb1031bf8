#include "core/common/rpc/testing/forged_method.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace torvane {
namespace {

using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;

std::unique_ptr<char[]> BytesOf(const void* object, size_t size) {
  auto bytes = std::make_unique<char[]>(size);
  std::memcpy(bytes.get(), object, size);
  return bytes;
}

// Replaces the pointer member that holds `from` by `to`.
void ReplacePointer(char* object, size_t size, uintptr_t from, uintptr_t to) {
  for (size_t offset = 0; offset < size; offset += sizeof(uintptr_t)) {
    uintptr_t member = 0;
    std::memcpy(&member, object + offset, sizeof(member));
    if (member != from)
      continue;
    std::memcpy(object + offset, &to, sizeof(to));
    return;
  }
  abort();
}

}  // namespace

// A method's index is its distance from the first of its service's methods, so
// the forgery gets a service whose first method is at that distance.
ForgedMethod::ForgedMethod(const MethodDescriptor* model, int index)
    : service_(BytesOf(model->service(), sizeof(ServiceDescriptor))),
      method_(BytesOf(model, sizeof(MethodDescriptor))) {
  ReplacePointer(method_.get(), sizeof(MethodDescriptor),
                 reinterpret_cast<uintptr_t>(model->service()),
                 reinterpret_cast<uintptr_t>(service_.get()));
  ReplacePointer(service_.get(), sizeof(ServiceDescriptor),
                 reinterpret_cast<uintptr_t>(model->service()->method(0)),
                 reinterpret_cast<uintptr_t>(method_.get()) -
                     static_cast<uintptr_t>(static_cast<intptr_t>(index)) *
                         sizeof(MethodDescriptor));
  if (get()->index() != index)
    abort();
}

ForgedMethod::~ForgedMethod() = default;

const MethodDescriptor* ForgedMethod::get() const {
  return reinterpret_cast<const MethodDescriptor*>(method_.get());
}

}  // namespace torvane
