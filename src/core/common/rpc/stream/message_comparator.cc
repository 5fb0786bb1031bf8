#include "core/common/rpc/stream/message_comparator.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>

#include <cstdint>
#include <cstring>
#include <memory>

#include "core/common/rpc/stream/message_comparator_maps.h"

// Compares the size of the deterministic serialisation first, then its bytes,
// then the name of the type: cheap comparisons come before expensive ones.

namespace torvane {

namespace {

using google::protobuf::Message;
using google::protobuf::io::EpsCopyOutputStream;

// Up to this size keys are compared without allocating.
constexpr size_t kInlineBytes = 256;

// The least that two map entries take: each has tag and length, tag and value
// of the key, tag and value of the value, one byte each. A smaller message has
// at most one entry, and nothing to sort.
constexpr size_t kTwoMapEntries = 12;

// Reads protobuf's ClassData: an address unique to each generated class, null
// for a message without generated code. That is far quicker than the
// descriptor, which may have to be built first. The accessor is protected,
// hence the derived class, of which there are no objects.
struct GeneratedClass : Message {
  static const void* Of(const Message& message) {
    constexpr auto get = &GeneratedClass::GetClassData;
    return (message.*get)();
  }
};

bool HasSortableMaps(const Message& message) {
  return GeneratedClass::Of(message) &&
         UseOfMaps(*message.GetDescriptor()) == MapUse::kSortable;
}

// `size` is what ByteSizeLong() has just returned.
void Serialize(const Message& message,
               uint8_t* data,
               size_t size,
               bool deterministic) {
  EpsCopyOutputStream out(data, static_cast<int>(size), deterministic);
  message._InternalSerialize(data, &out);
}

// The deterministic serialisation of a message.
class Serialization {
 public:
  Serialization(const Message& message, size_t size) {
    if (size > kInlineBytes) {
      heap_.reset(new uint8_t[size]);
      data_ = heap_.get();
    } else if (HasSortableMaps(message)) {
      Serialize(message, data_, size, false);
      if (SortMaps(message, data_, size))
        return;
    }
    Serialize(message, data_, size, true);
  }
  Serialization(const Serialization&) = delete;
  Serialization& operator=(const Serialization&) = delete;

  const uint8_t* data() const { return data_; }

 private:
  uint8_t inline_[kInlineBytes];
  std::unique_ptr<uint8_t[]> heap_;
  uint8_t* data_ = inline_;
};

// Only for messages with equal bytes.
[[gnu::noinline]] bool TypeLess(const Message& a, const Message& b) {
  const void* const generated_class = GeneratedClass::Of(a);
  if (generated_class && generated_class == GeneratedClass::Of(b))
    return false;
  return a.GetDescriptor()->full_name() < b.GetDescriptor()->full_name();
}

// Compares byte by byte instead of with memcmp: the bytes have just been
// written one by one, and a wide load would stall until those stores have
// completed.
bool SmallLess(const Message& a, const Message& b, size_t size) {
  uint8_t bytes_a[kTwoMapEntries];
  uint8_t bytes_b[kTwoMapEntries];
  Serialize(a, bytes_a, size, true);
  Serialize(b, bytes_b, size, true);
  for (size_t i = 0; i < size; ++i) {
    if (bytes_a[i] != bytes_b[i])
      return bytes_a[i] < bytes_b[i];
  }
  return TypeLess(a, b);
}

[[gnu::noinline]] bool LargeLess(const Message& a,
                                 const Message& b,
                                 size_t size) {
  const int order = std::memcmp(Serialization(a, size).data(),
                                Serialization(b, size).data(), size);
  return order != 0 ? order < 0 : TypeLess(a, b);
}

}  // namespace

bool MessageComparator::operator()(const Message* a, const Message* b) const {
  const size_t size_a = a->ByteSizeLong();
  const size_t size_b = b->ByteSizeLong();
  if (size_a != size_b)
    return size_a < size_b;
  return size_a < kTwoMapEntries ? SmallLess(*a, *b, size_a)
                                 : LargeLess(*a, *b, size_a);
}

}  // namespace torvane
