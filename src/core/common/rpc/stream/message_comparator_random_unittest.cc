#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/unknown_field_set.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "browser_id.pb.h"
#include "comparator_proto2.pb.h"
#include "comparator_proto3.pb.h"
#include "core/common/rpc/stream/message_comparator_maps.h"
#include "core/common/rpc/stream/message_comparator_test_support.h"

namespace torvane {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::DynamicMessageFactory;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::Reflection;
using google::protobuf::UnknownFieldSet;

using Messages = std::vector<std::unique_ptr<Message>>;

// Fills messages of any type at random, from few values, so that equal and
// nearly equal ones are frequent.
class RandomContent {
 public:
  explicit RandomContent(uint64_t seed) : random_(seed) {}

  // Both prototypes are of one type.
  std::unique_ptr<Message> Make(const Message& dynamic_prototype,
                                const Message& prototype) {
    // Reflection builds maps out of merged entries, and merging messages in
    // extensions needs the run-time type information that generated code here
    // lacks. Hence the way by a dynamic message and parsing.
    const std::unique_ptr<Message> raw(dynamic_prototype.New());
    FillKnown(raw.get(), 0);
    std::unique_ptr<Message> message(prototype.New());
    message->ParsePartialFromString(raw->SerializePartialAsString());
    AddUnknown(message.get(), 0);
    return message;
  }

  size_t Below(size_t end) { return random_() % end; }

 private:
  template <typename T>
  T OneOf(std::initializer_list<T> values) {
    return values.begin()[Below(values.size())];
  }

  std::string Text() {
    const std::string text =
        OneOf<std::string>({"", "a", "b", "ab", "\xC3\xA9", "a longer text "});
    return text.size() > 2 && Below(8) == 0 ? text + std::string(100, 'x')
                                            : text;
  }

  template <typename T>
  T Number() {
    return OneOf<T>({T{0}, T{1}, T{2}, static_cast<T>(-1), T{127},
                     std::numeric_limits<T>::min(),
                     std::numeric_limits<T>::max()});
  }

  template <typename T>
  T Real() {
    const T nan = std::numeric_limits<T>::quiet_NaN();
    return OneOf<T>({T{0}, -T{0}, T{1}, nan, -nan});
  }

  void FillKnown(Message* message, int depth) {
    const Descriptor& type = *message->GetDescriptor();
    std::vector<const FieldDescriptor*> fields;
    type.file()->pool()->FindAllExtensions(&type, &fields);
    for (int i = 0; i < type.field_count(); ++i)
      fields.push_back(type.field(i));
    for (const FieldDescriptor* field : fields) {
      if (Below(4) != 0)
        continue;
      const size_t count = field->is_repeated() ? Below(4) : 1;
      for (size_t n = 0; n < count; ++n)
        FillField(message, field, depth);
    }
  }

  void FillField(Message* message, const FieldDescriptor* field, int depth) {
    const Reflection& reflection = *message->GetReflection();
    const bool repeated = field->is_repeated();
    const auto put = [&](auto set, auto add, const auto& value) {
      repeated ? (reflection.*add)(message, field, value)
               : (reflection.*set)(message, field, value);
    };
    using R = Reflection;
    switch (field->cpp_type()) {
      case FieldDescriptor::CPPTYPE_INT32:
        return put(&R::SetInt32, &R::AddInt32, Number<int32_t>());
      case FieldDescriptor::CPPTYPE_INT64:
        return put(&R::SetInt64, &R::AddInt64, Number<int64_t>());
      case FieldDescriptor::CPPTYPE_UINT32:
        return put(&R::SetUInt32, &R::AddUInt32, Number<uint32_t>());
      case FieldDescriptor::CPPTYPE_UINT64:
        return put(&R::SetUInt64, &R::AddUInt64, Number<uint64_t>());
      case FieldDescriptor::CPPTYPE_DOUBLE:
        return put(&R::SetDouble, &R::AddDouble, Real<double>());
      case FieldDescriptor::CPPTYPE_FLOAT:
        return put(&R::SetFloat, &R::AddFloat, Real<float>());
      case FieldDescriptor::CPPTYPE_BOOL:
        return put(&R::SetBool, &R::AddBool, Below(2) == 0);
      case FieldDescriptor::CPPTYPE_STRING:
        return put(&R::SetString, &R::AddString, Text());
      case FieldDescriptor::CPPTYPE_ENUM:
        return put(&R::SetEnumValue, &R::AddEnumValue,
                   static_cast<int>(Below(4)));
      case FieldDescriptor::CPPTYPE_MESSAGE:
        if (depth < 3) {
          FillKnown(repeated ? reflection.AddMessage(message, field)
                             : reflection.MutableMessage(message, field),
                    depth + 1);
        }
    }
  }

  // To the message and the sub-messages that are not in maps.
  void AddUnknown(Message* message, int depth) {
    const Descriptor& type = *message->GetDescriptor();
    const Reflection& reflection = *message->GetReflection();
    if (Below(3) == 0)
      FillUnknown(reflection.MutableUnknownFields(message), type, depth);
    std::vector<const FieldDescriptor*> fields;
    reflection.ListFields(*message, &fields);
    for (const FieldDescriptor* field : fields) {
      if (!field->message_type() || field->is_map())
        continue;
      if (!field->is_repeated()) {
        AddUnknown(reflection.MutableMessage(message, field), depth + 1);
        continue;
      }
      for (int i = 0; i < reflection.FieldSize(*message, field); ++i) {
        AddUnknown(reflection.MutableRepeatedMessage(message, field, i),
                   depth + 1);
      }
    }
  }

  // Often under the number of a known field.
  void FillUnknown(UnknownFieldSet* unknown,
                   const Descriptor& type,
                   int depth) {
    for (size_t count = 1 + Below(3); count > 0; --count) {
      int number = 1000 + static_cast<int>(Below(2));
      if (type.field_count() > 0 && Below(2) == 0)
        number =
            type.field(static_cast<int>(Below(type.field_count())))->number();
      switch (Below(4)) {
        case 0:
          unknown->AddVarint(number, Number<uint64_t>());
          break;
        case 1:
          unknown->AddLengthDelimited(
              number, OneOf<std::string>({"", "\x08\x01\x10\x02", "?"}));
          break;
        case 2:
          unknown->AddFixed32(number, 1);
          break;
        default:
          if (depth < 3)
            FillUnknown(unknown->AddGroup(number), type, depth + 1);
      }
    }
  }

  std::mt19937_64 random_;
};

// The types of the test files, generated and, twice, dynamic: over the
// descriptors of the generated code and over those of another pool.
class Prototypes {
 public:
  Prototypes() : other_factory_(&other_pool_) {
    Add(test::Flat(), test::OtherFlat(), test::Nested(), test::Maps(),
        test::MapsWithin(), test::MapsWithinMaps(), test::Tree(),
        test::Forest(), test::Deep(), test::Packed(), test::Open(),
        test::OpenValues(), test::ExtensibleWithin(), test::Mandatory(),
        test::Extensible(), test::Colours(), test::Grouped(), test::Set(),
        BrowserId());
  }

  // Three of each type.
  const std::vector<const Message*>& all() const { return all_; }

 private:
  template <typename... T>
  void Add(const T&...) {
    (AddType(T::default_instance()), ...);
  }

  void AddType(const Message& generated) {
    const Descriptor* type = generated.GetDescriptor();
    FileDescriptorProto file;
    type->file()->CopyTo(&file);
    other_pool_.BuildFile(file);
    all_.push_back(&generated);
    all_.push_back(factory_.GetPrototype(type));
    all_.push_back(other_factory_.GetPrototype(
        other_pool_.FindMessageTypeByName(type->full_name())));
  }

  DescriptorPool other_pool_;
  DynamicMessageFactory factory_;
  DynamicMessageFactory other_factory_;
  std::vector<const Message*> all_;
};

// The same content, put together in another way and in any of the three kinds.
std::unique_ptr<Message> Twin(const Message& message,
                              const Message& prototype) {
  std::unique_ptr<Message> twin(prototype.New());
  twin->ParsePartialFromString(DeterministicBytes(message));
  return twin;
}

Messages RandomMessages(RandomContent& content, const Prototypes& prototypes) {
  // Few types at once, so that messages of the same type meet.
  const size_t kind = content.Below(prototypes.all().size() / 3);
  const size_t other_kind = content.Below(prototypes.all().size() / 3);
  Messages messages;
  for (int i = 0; i < 12; ++i) {
    const size_t first = 3 * (i % 4 == 0 ? other_kind : kind);
    const auto any = [&] { return prototypes.all()[first + content.Below(3)]; };
    std::unique_ptr<Message> message =
        content.Make(*prototypes.all()[first + 1], *any());
    messages.push_back(Twin(*message, *any()));
    messages.push_back(Twin(*message, *prototypes.all()[first]));
    messages.push_back(std::move(message));
  }
  return messages;
}

void ExpectSortedMaps(const Messages& messages) {
  for (const auto& message : messages) {
    const bool generated = message->GetReflection()->GetMessageFactory() ==
                           MessageFactory::generated_factory();
    if (!generated ||
        UseOfMaps(*message->GetDescriptor()) != MapUse::kSortable) {
      continue;
    }
    std::string bytes = message->SerializePartialAsString();
    if (SortMaps(*message, reinterpret_cast<uint8_t*>(bytes.data()),
                 bytes.size())) {
      EXPECT_EQ(bytes, DeterministicBytes(*message));
    }
  }
}

using Matrix = std::vector<std::vector<bool>>;

Matrix CompareAll(const Messages& messages) {
  Matrix less;
  for (const auto& a : messages) {
    less.emplace_back();
    for (const auto& b : messages)
      less.back().push_back(Less(*a, *b));
  }
  return less;
}

void ExpectAgreementWithContent(const Messages& messages, const Matrix& less) {
  for (size_t a = 0; a < messages.size(); ++a) {
    EXPECT_FALSE(less[a][a]) << messages[a]->ShortDebugString();
    for (size_t b = 0; b < a; ++b) {
      EXPECT_FALSE(less[a][b] && less[b][a]);
      EXPECT_EQ(!less[a][b] && !less[b][a],
                SameContent(*messages[a], *messages[b]))
          << messages[a]->GetTypeName() << ": "
          << messages[a]->ShortDebugString() << "\n"
          << messages[b]->GetTypeName() << ": "
          << messages[b]->ShortDebugString();
    }
  }
}

void ExpectTransitivity(const Matrix& less) {
  const auto equivalent = [&](size_t a, size_t b) {
    return !less[a][b] && !less[b][a];
  };
  for (size_t a = 0; a < less.size(); ++a) {
    for (size_t b = 0; b < less.size(); ++b) {
      for (size_t c = 0; c < less.size(); ++c) {
        EXPECT_TRUE(less[a][c] || !less[a][b] || !less[b][c]);
        EXPECT_TRUE(equivalent(a, c) || !equivalent(a, b) || !equivalent(b, c));
      }
    }
  }
}

// A seed in the environment repeats a run.
uint64_t Seed() {
  const char* seed = std::getenv("TORVANE_TEST_SEED");
  return seed ? std::strtoull(seed, nullptr, 10) : std::random_device()();
}

TEST(MessageComparatorRandom, IsAStrictWeakOrderingThatAgreesWithContent) {
  const uint64_t seed = Seed();
  std::cout << "TORVANE_TEST_SEED=" << seed << std::endl;
  RandomContent content(seed);
  const Prototypes prototypes;
  // protobuf complains of dynamic messages with map entries of equal keys; they
  // have a deterministic serialisation all the same.
  const google::protobuf::LogSilencer silencer;
  for (int round = 0; round < 200 && !HasFailure(); ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    const Messages messages = RandomMessages(content, prototypes);
    ExpectSortedMaps(messages);
    const Matrix less = CompareAll(messages);
    ExpectAgreementWithContent(messages, less);
    ExpectTransitivity(less);
  }
}

}  // namespace
}  // namespace torvane
