#include "core/common/rpc/stream/message_comparator.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>

#include "core/common/rpc/stream/message_comparator_maps.h"

namespace torvane {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::io::EpsCopyOutputStream;

// Up to this size keys are compared without allocating.
constexpr size_t kInlineBytes = 256;

// What protobuf tells generated classes apart by: an address that is unique to
// the class, or null for a message without generated code. Far quicker to get
// than a descriptor. Being protected, it is reached through a derived class, of
// which there are no objects.
struct GeneratedClass : Message {
  static const void* Of(const Message& message) {
    constexpr auto get = &GeneratedClass::GetClassData;
    return (message.*get)();
  }
  // Leaves room for a Shape beside an address.
  static_assert(alignof(ClassData) >= 4);
};

// How the messages of a generated class are best serialised.
enum Shape : uintptr_t {
  // Without sub-messages and packed fields, whose sizes stand before them and
  // must have been computed by ByteSizeLong(). Serialises right away.
  kFlat = 1,
  // With maps to sort.
  kWithMaps = 2,
  kGeneral = 3,
};
constexpr uintptr_t kShapeMask = 3;

bool IsFlat(const Descriptor& type) {
  for (int i = 0; i < type.field_count(); ++i) {
    const FieldDescriptor& field = *type.field(i);
    if (field.message_type() || field.is_packed())
      return false;
  }
  return type.extension_range_count() == 0;
}

Shape FindShape(const Descriptor& type) {
  if (IsFlat(type))
    return kFlat;
  return UseOfMaps(type) == MapUse::kSortable ? kWithMaps : kGeneral;
}

// The shapes of the classes met last: each slot holds the address of a class
// with its shape in the low bits. A slot says all by itself, so threads need no
// order among their accesses. Constant-initialised: serves while the program
// loads.
constinit std::array<std::atomic<uintptr_t>, 64> g_shapes = {};

[[gnu::noinline]] Shape LearnShape(const Message& message,
                                   uintptr_t address,
                                   std::atomic<uintptr_t>& slot) {
  const Shape shape = FindShape(*message.GetDescriptor());
  slot.store(address | shape, std::memory_order_relaxed);
  return shape;
}

Shape ShapeOf(const Message& message, const void* generated_class) {
  const auto address = reinterpret_cast<uintptr_t>(generated_class);
  std::atomic<uintptr_t>& slot = g_shapes[address / 16 % g_shapes.size()];
  const uintptr_t known = slot.load(std::memory_order_relaxed);
  if ((known & ~kShapeMask) == address)
    return static_cast<Shape>(known & kShapeMask);
  return LearnShape(message, address, slot);
}

// Short keys are not left to memcmp: its wide loads would have to wait until
// the single bytes just written have reached the cache.
bool BytesLess(const uint8_t* a, const uint8_t* b, size_t size) {
  constexpr size_t kShort = 16;
  if (size > kShort)
    return std::memcmp(a, b, size) < 0;
  size_t i = 0;
  while (i < size && a[i] == b[i])
    ++i;
  return i < size && a[i] < b[i];
}

// The deterministic serialisation of a message.
class Serialization {
 public:
  // `size` is what ByteSizeLong() has just returned.
  Serialization(const Message& message, size_t size, Shape shape) {
    if (size > kInlineBytes) {
      heap_.reset(new uint8_t[size]);
      data_ = heap_.get();
    }
    const bool sort = shape == kWithMaps && size <= kInlineBytes;
    Write(message, size, !sort);
    if (sort && !SortMaps(message, data_, size))
      Write(message, size, true);
  }
  Serialization(const Serialization&) = delete;
  Serialization& operator=(const Serialization&) = delete;

  const uint8_t* data() const { return data_; }

 private:
  void Write(const Message& message, size_t size, bool deterministic) {
    EpsCopyOutputStream out(data_, static_cast<int>(size), deterministic);
    message._InternalSerialize(data_, &out);
  }

  uint8_t inline_[kInlineBytes];
  std::unique_ptr<uint8_t[]> heap_;
  uint8_t* data_ = inline_;
};

[[gnu::noinline]] bool SerializationLess(const Message& a,
                                         const Message& b,
                                         Shape shape) {
  const size_t size_a = a.ByteSizeLong();
  const size_t size_b = b.ByteSizeLong();
  if (size_a != size_b)
    return size_a < size_b;
  return BytesLess(Serialization(a, size_a, shape).data(),
                   Serialization(b, size_b, shape).data(), size_a);
}

// Both keys go into one buffer, one behind the other. What does not fit is
// detected rather than measured in advance.
bool FlatLess(const Message& a, const Message& b) {
  uint8_t buffer[2 * kInlineBytes + 2 * EpsCopyOutputStream::kSlopBytes];
  uint8_t* begin_a;
  EpsCopyOutputStream out(buffer, sizeof buffer, nullptr, true, &begin_a);
  uint8_t* const begin_b = a._InternalSerialize(begin_a, &out);
  uint8_t* const end_b = b._InternalSerialize(begin_b, &out);
  if (out.HadError())
    return SerializationLess(a, b, kGeneral);
  const ptrdiff_t size_a = begin_b - begin_a;
  const ptrdiff_t size_b = end_b - begin_b;
  if (size_a != size_b)
    return size_a < size_b;
  return BytesLess(begin_a, begin_b, static_cast<size_t>(size_a));
}

// Without two objects of one generated class only the name tells the type.
[[gnu::noinline]] bool ForeignLess(const Message& a, const Message& b) {
  const int names =
      a.GetDescriptor()->full_name().compare(b.GetDescriptor()->full_name());
  return names != 0 ? names < 0 : SerializationLess(a, b, kGeneral);
}

}  // namespace

bool MessageComparator::operator()(const Message* a, const Message* b) const {
  const void* const generated_class = GeneratedClass::Of(*a);
  if (!generated_class || generated_class != GeneratedClass::Of(*b))
    return ForeignLess(*a, *b);

  const Shape shape = ShapeOf(*a, generated_class);
  return shape == kFlat ? FlatLess(*a, *b) : SerializationLess(*a, *b, shape);
}

}  // namespace torvane
