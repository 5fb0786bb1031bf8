#include "core/common/rpc/serving/window_message_reader.h"

#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "absl/strings/escaping.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/model_run.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::serving {
namespace {

using google::protobuf::MethodDescriptor;
using Payloads = std::vector<std::string>;

std::string Describe(const WindowMessage& said) {
  static constexpr const char* kKinds[] = {"other", "subscribe", "unsubscribe",
                                           "response"};
  return absl::StrCat(kKinds[static_cast<size_t>(said.kind)], " '",
                      absl::CHexEscape(said.window), "'",
                      said.has_unknown_fields ? " and more" : "");
}

// What a stream of questions makes of `payload`.
std::string ReadAsStream(const std::string& payload) {
  CloseWindow message;
  message.ParseFromString(payload);
  WindowMessage said;
  said.window = message.browser_id().SerializeAsString();
  if (message.has_subscribe()) {
    said.kind = message.subscribe() ? WindowMessage::Kind::kSubscribe
                                    : WindowMessage::Kind::kUnsubscribe;
  } else if (message.has_response()) {
    said.kind = WindowMessage::Kind::kResponse;
  }
  const auto has_unknown = [](const google::protobuf::Message& part) {
    return !part.GetReflection()->GetUnknownFields(part).empty();
  };
  said.has_unknown_fields =
      message.has_subscribe() &&
      (has_unknown(message) || has_unknown(message.browser_id()));
  return Describe(said);
}

const MethodDescriptor& Method(const std::string& name) {
  return *BrowserWindowRpc::descriptor()->FindMethodByName(name);
}

std::string Read(WindowMessageReader& reader, const std::string& payload) {
  transport::StreamMessage message;
  message.set_payload(payload);
  return Describe(reader.ReadFromClient(message));
}

class QuestionsReaderTest : public ::testing::Test {
 protected:
  void ExpectAgreement(const std::string& payload) {
    const std::string expected = ReadAsStream(payload);
    const std::string actual = Read(reader_, payload);
    // Not EXPECT_EQ for each: there are very many.
    if (actual != expected) {
      ADD_FAILURE() << "payload '" << absl::CHexEscape(payload)
                    << "': the stream reads " << expected << ", the reader "
                    << actual;
    }
  }
  void ExpectAgreementOnAllBeginnings(const std::string& payload) {
    for (size_t size = 0; size <= payload.size(); ++size) {
      ExpectAgreement(payload.substr(0, size));
    }
  }

  BrowserWindowRpc service_;
  WindowMessageReader reader_{service_, Method("OnCloseWindow")};
};

// `value` in at least `bytes` bytes.
std::string Varint(uint64_t value, size_t bytes = 1) {
  std::string out;
  for (; value >= 0x80 || bytes > 1; value >>= 7) {
    out.push_back(static_cast<char>((value & 0x7f) | 0x80));
    bytes -= bytes > 1 ? 1 : 0;
  }
  out.push_back(static_cast<char>(value));
  return out;
}

enum WireType : uint8_t {
  kVarint,
  kFixed64,
  kDelimited,
  kStartGroup,
  kEndGroup,
  kFixed32
};

std::string Tag(uint32_t field, WireType type) {
  return Varint(field << 3 | type);
}

std::string Delimited(uint32_t field, const std::string& value) {
  return Tag(field, kDelimited) + Varint(value.size()) + value;
}

constexpr uint32_t kBrowserId = 1;
constexpr uint32_t kSubscribe = 2;
constexpr uint32_t kQuestion = 3;
constexpr uint32_t kResponse = 4;
constexpr uint32_t kUnknown = 9;
constexpr uint64_t kBit32 = uint64_t{1} << 32;
// Of over-long varints: within and beyond the five bytes that a tag or a length
// may take, and the ten of a value.
constexpr size_t kByteCounts[] = {2, 5, 6, 10, 11};

// Each window subscribed, released and answered for, as a protobuf writer
// writes it. The last two name no window.
Payloads PlainPayloads() {
  Payloads payloads;
  for (const int64_t window :
       {int64_t{0}, int64_t{1}, int64_t{127}, int64_t{128},
        std::numeric_limits<int64_t>::max(), int64_t{-1}}) {
    CloseWindow message;
    if (window != 0) {
      message.mutable_browser_id()->set_value(window);
    } else {
      message.mutable_browser_id();
    }
    for (const bool subscribe : {false, true}) {
      message.set_subscribe(subscribe);
      payloads.push_back(message.SerializeAsString());
    }
    for (const bool allowed : {false, true}) {
      message.mutable_response()->set_allowed(allowed);
      payloads.push_back(message.SerializeAsString());
    }
  }
  CloseWindow of_no_window;
  of_no_window.set_subscribe(true);
  payloads.push_back(of_no_window.SerializeAsString());
  of_no_window.mutable_response();
  payloads.push_back(of_no_window.SerializeAsString());
  return payloads;
}

// The insides of a BrowserId.
Payloads AwkwardIds() {
  const std::string value_tag = Tag(1, kVarint);
  Payloads ids = {
      "",
      value_tag + Varint(7),
      value_tag + Varint(0),
      value_tag + Varint(7) + value_tag + Varint(8),
      value_tag + Varint(~uint64_t{0}),
      value_tag + std::string(9, '\xff') + '\x02',
      value_tag + std::string(9, '\xff') + '\x7f',
      value_tag + std::string(9, '\x80') + '\x01',
      value_tag + std::string(9, '\x80') + '\x02',
      value_tag,
      value_tag + '\x80',
      Tag(kUnknown, kVarint) + Varint(1),
      value_tag + Varint(7) + Tag(kUnknown, kVarint) + Varint(1),
      Tag(kUnknown, kVarint) + Varint(1) + value_tag + Varint(7),
      value_tag + Varint(7) + Delimited(kUnknown, "x"),
      value_tag + Varint(7) + Tag(kUnknown, kStartGroup) +
          Tag(kUnknown, kEndGroup),
      value_tag + Varint(7) + Tag(kUnknown, kStartGroup),
      value_tag + Varint(7) + Tag(kUnknown, kEndGroup),
      Tag(1, kFixed64) + "12345678",
      Tag(1, kFixed32) + "1234",
      Delimited(1, "7"),
      Varint(8, 2) + Varint(7),
      value_tag + Varint(7) + '\0',
      std::string(1, '\0'),
  };
  for (const size_t bytes : kByteCounts) {
    ids.push_back(value_tag + Varint(7, bytes));
    ids.push_back(value_tag + Varint(0, bytes));
  }
  return ids;
}

// Fields of a callback message, and what is none.
Payloads Pieces() {
  Payloads pieces;
  const std::string id = Tag(1, kVarint) + Varint(7);
  const std::string allowed = Tag(1, kVarint) + Varint(1);
  for (const std::string& inside : AwkwardIds()) {
    pieces.push_back(Delimited(kBrowserId, inside));
  }
  for (const uint32_t field : {kBrowserId, kResponse}) {
    for (const size_t bytes : kByteCounts) {
      pieces.push_back(Tag(field, kDelimited) + Varint(id.size(), bytes) + id);
      pieces.push_back(Varint(field << 3 | kDelimited, bytes) +
                       Varint(id.size()) + id);
    }
    pieces.push_back(Tag(field, kDelimited) + Varint(id.size() | kBit32) + id);
    pieces.push_back(Tag(field, kDelimited) + Varint(id.size() | kBit32 / 2) +
                     id);
    pieces.push_back(Tag(field, kDelimited) + Varint(~uint64_t{0}) + id);
    pieces.push_back(Varint((field << 3 | kDelimited) | kBit32) +
                     Varint(id.size()) + id);
    pieces.push_back(Tag(field, kVarint) + Varint(1));
    pieces.push_back(Tag(field, kFixed32) + "1234");
    pieces.push_back(Tag(field, kFixed64) + "12345678");
    pieces.push_back(Tag(field, kStartGroup) + id + Tag(field, kEndGroup));
    pieces.push_back(Tag(field, kStartGroup) + id + Tag(kUnknown, kEndGroup));
    pieces.push_back(Tag(field, kEndGroup));
  }
  for (const uint64_t subscribe :
       {uint64_t{0}, uint64_t{1}, uint64_t{2}, uint64_t{0x80}, kBit32,
        kBit32 | 1, uint64_t{1} << 63, ~uint64_t{0}}) {
    pieces.push_back(Tag(kSubscribe, kVarint) + Varint(subscribe));
  }
  for (const size_t bytes : kByteCounts) {
    pieces.push_back(Tag(kSubscribe, kVarint) + Varint(0, bytes));
    pieces.push_back(Tag(kSubscribe, kVarint) + Varint(1, bytes));
    pieces.push_back(Varint(kSubscribe << 3, bytes) + Varint(1));
  }
  pieces.push_back(Tag(kSubscribe, kVarint) + std::string(9, '\x80') + '\x02');
  pieces.push_back(Varint((kSubscribe << 3) | kBit32) + Varint(1));
  pieces.push_back(Delimited(kSubscribe, "\x01"));
  pieces.push_back(Tag(kSubscribe, kFixed32) + "1234");
  pieces.push_back(Delimited(kQuestion, ""));
  pieces.push_back(Delimited(kQuestion, "\xff"));
  pieces.push_back(Delimited(kResponse, ""));
  pieces.push_back(Delimited(kResponse, "\xff"));
  pieces.push_back(Delimited(kResponse, Tag(1, kVarint)));
  pieces.push_back(Delimited(kResponse, Delimited(kUnknown, "x")));
  pieces.push_back(Tag(kResponse, kDelimited) + Varint(100) + "too short");
  pieces.push_back(Tag(kUnknown, kVarint) + Varint(1));
  pieces.push_back(Delimited(kUnknown, "x"));
  pieces.push_back(Tag(kUnknown, kStartGroup) + Tag(kSubscribe, kVarint) +
                   Varint(1) + Tag(kUnknown, kEndGroup));
  pieces.push_back(std::string(1, '\0'));
  pieces.push_back(Tag(0, kDelimited));
  pieces.push_back("\x0e");
  pieces.push_back("\x0f");
  pieces.push_back("\xff");
  return pieces;
}

TEST_F(QuestionsReaderTest, ReadsPlainMessagesAsTheStreamDoes) {
  CloseWindow message;
  message.mutable_browser_id()->set_value(7);
  message.set_subscribe(true);
  EXPECT_EQ(Read(reader_, message.SerializeAsString()),
            "subscribe '\\x08\\x07'");
  message.set_subscribe(false);
  EXPECT_EQ(Read(reader_, message.SerializeAsString()),
            "unsubscribe '\\x08\\x07'");
  message.mutable_response();
  EXPECT_EQ(Read(reader_, message.SerializeAsString()),
            "response '\\x08\\x07'");
  message.mutable_question();
  EXPECT_EQ(Read(reader_, message.SerializeAsString()), "other '\\x08\\x07'");
  EXPECT_EQ(Read(reader_, ""), "other ''");
  for (const std::string& payload : PlainPayloads()) {
    ExpectAgreementOnAllBeginnings(payload);
  }
}

TEST_F(QuestionsReaderTest, ReadsUnknownFieldsOfSubscriptionsOnly) {
  const std::string subscribe = Tag(kSubscribe, kVarint) + Varint(1);
  const std::string unknown = Tag(kUnknown, kVarint) + Varint(1);
  const std::string id = Tag(1, kVarint) + Varint(7);
  EXPECT_EQ(Read(reader_, Delimited(kBrowserId, id) + subscribe),
            "subscribe '\\x08\\x07'");
  EXPECT_EQ(Read(reader_, Delimited(kBrowserId, id) + subscribe + unknown),
            "subscribe '\\x08\\x07' and more");
  EXPECT_EQ(Read(reader_, Delimited(kBrowserId, id + unknown) + subscribe),
            "subscribe '\\x08\\x07H\\x01' and more");
  EXPECT_EQ(Read(reader_, Delimited(kBrowserId, id) + unknown +
                              Delimited(kResponse, "")),
            "response '\\x08\\x07'");
}

TEST_F(QuestionsReaderTest, ReadsAwkwardEncodingsAsTheStreamDoes) {
  const Payloads pieces = Pieces();
  for (const std::string& first : pieces) {
    for (const std::string& second : pieces) {
      ExpectAgreementOnAllBeginnings(first + second);
    }
  }
}

TEST_F(QuestionsReaderTest, ReadsThreeAwkwardFieldsAsTheStreamDoes) {
  const Payloads pieces = Pieces();
  const std::string id = Delimited(kBrowserId, Tag(1, kVarint) + Varint(7));
  for (const std::string& second : pieces) {
    for (const std::string& third : pieces) {
      ExpectAgreement(id + second + third);
    }
  }
}

TEST_F(QuestionsReaderTest, ReadsMutatedMessagesAsTheStreamDoes) {
  constexpr int kMutants = 50'000;
  std::mt19937 random(torvane::ModelSeed());
  const auto choose = [&random](size_t count) {
    return std::uniform_int_distribution<size_t>(0, count - 1)(random);
  };
  const Payloads plain = PlainPayloads();
  const Payloads pieces = Pieces();
  for (int i = 0; i < kMutants && !HasFailure(); ++i) {
    std::string payload = plain[choose(plain.size())];
    for (size_t changes = 1 + choose(4); changes > 0; --changes) {
      const size_t at = choose(payload.size() + 1);
      switch (choose(6)) {
        case 0:
          payload.insert(at, 1, static_cast<char>(choose(256)));
          break;
        case 1:
          payload.erase(at, 1 + choose(3));
          break;
        case 2:
          payload.insert(at, pieces[choose(pieces.size())]);
          break;
        case 3:
          payload += plain[choose(plain.size())];
          break;
        default:
          if (at < payload.size()) {
            payload[at] = static_cast<char>(payload[at] ^ (1 << choose(8)));
          }
      }
    }
    ExpectAgreement(payload);
  }
}

TEST_F(QuestionsReaderTest, KeepsNothingOfAnEarlierMessage) {
  const std::string large =
      Tag(kSubscribe, kVarint) + Varint(1) +
      Delimited(kBrowserId, Delimited(kUnknown, std::string(100'000, 'x')));
  ExpectAgreement(large);
  ExpectAgreement("");
  ExpectAgreement(Tag(kSubscribe, kVarint) + Varint(1));
  ExpectAgreement("");
}

TEST_F(QuestionsReaderTest, MakesWhatUnsubscribesFromAWindow) {
  for (const std::string& window :
       {std::string(), Tag(1, kVarint) + Varint(7)}) {
    const std::string payload = reader_.UnsubscriptionFrom(window);
    EXPECT_EQ(Read(reader_, payload),
              absl::StrCat("unsubscribe '", absl::CHexEscape(window), "'"));
    ExpectAgreement(payload);
  }
}

TEST_F(QuestionsReaderTest, FindsTheWindowOfAQuestion) {
  const auto window_of = [this](const CloseWindow& question) {
    transport::StreamMessage message;
    question.SerializeToString(message.mutable_payload());
    return reader_.WindowOfQuestion(message);
  };
  CloseWindow question;
  question.mutable_question()->set_reason(WINDOW_CLOSE_REASON_USER);
  EXPECT_EQ(window_of(question), "");
  question.mutable_browser_id();
  EXPECT_EQ(window_of(question), "");
  for (const int64_t window : {int64_t{1}, int64_t{128}, int64_t{-1}}) {
    question.mutable_browser_id()->set_value(window);
    EXPECT_EQ(window_of(question), question.browser_id().SerializeAsString());
  }
  transport::StreamMessage in_other_order;
  in_other_order.set_payload(Delimited(kQuestion, "") +
                             Delimited(kBrowserId, "\x08\x07"));
  EXPECT_EQ(reader_.WindowOfQuestion(in_other_order), "\x08\x07");
}

class EventsReaderTest : public ::testing::Test {
 protected:
  std::string ReadEvent(const std::string& payload) {
    return Read(reader_, payload);
  }

  BrowserWindowRpc service_;
  WindowMessageReader reader_{service_, Method("WhenBrowserWindowClosed")};
};

TEST_F(EventsReaderTest, ReadsWhichWindowIsSubscribedTo) {
  EventSubscription subscription;
  EXPECT_EQ(ReadEvent(subscription.SerializeAsString()), "other ''");
  subscription.mutable_subscribe_to();
  EXPECT_EQ(ReadEvent(subscription.SerializeAsString()), "subscribe ''");
  subscription.mutable_subscribe_to()->set_value(7);
  EXPECT_EQ(ReadEvent(subscription.SerializeAsString()),
            "subscribe '\\x08\\x07'");
  subscription.mutable_unsubscribe_from()->set_value(-1);
  EXPECT_EQ(ReadEvent(subscription.SerializeAsString()),
            "unsubscribe '\\x08\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff"
            "\\x01'");
}

TEST_F(EventsReaderTest, MakesWhatUnsubscribesFromAWindow) {
  for (const std::string& window :
       {std::string(), Tag(1, kVarint) + Varint(7)}) {
    EXPECT_EQ(ReadEvent(reader_.UnsubscriptionFrom(window)),
              absl::StrCat("unsubscribe '", absl::CHexEscape(window), "'"));
  }
}

TEST_F(EventsReaderTest, ReadsUnknownFields) {
  const std::string unknown = Tag(kUnknown, kVarint) + Varint(1);
  const std::string id = Tag(1, kVarint) + Varint(7);
  EXPECT_EQ(ReadEvent(Delimited(1, id) + unknown),
            "subscribe '\\x08\\x07' and more");
  EXPECT_EQ(ReadEvent(Delimited(2, id + unknown)),
            "unsubscribe '\\x08\\x07H\\x01' and more");
  EXPECT_EQ(ReadEvent(unknown), "other ''");
  // Replaced, and so gone.
  EXPECT_EQ(ReadEvent(Delimited(2, id + unknown) + Delimited(1, id)),
            "subscribe '\\x08\\x07'");
}

TEST_F(EventsReaderTest, ReadsAwkwardEncodingsAsTheStreamDoes) {
  const std::string id = Tag(1, kVarint) + Varint(7);
  // The last one counts.
  EXPECT_EQ(ReadEvent(Delimited(1, id) + Delimited(2, id)),
            "unsubscribe '\\x08\\x07'");
  EXPECT_EQ(ReadEvent(Delimited(2, id) + Delimited(1, id)),
            "subscribe '\\x08\\x07'");
  // As far as it parses.
  EXPECT_EQ(ReadEvent(Delimited(1, id) + '\xff'), "subscribe '\\x08\\x07'");
  EXPECT_EQ(ReadEvent(Delimited(1, Varint(8) + Varint(7, 10))),
            "subscribe '\\x08\\x07'");
  EXPECT_EQ(ReadEvent("\xff"), "other ''");
}

// A stream of BrowserIds, which only a service of its own knows how to open.
TEST(WindowMessageReader, ReadsNothingOnAStreamOfNoKind) {
  google::protobuf::FileDescriptorProto file;
  file.set_name("no_kind.proto");
  file.add_dependency("browser_id.proto");
  auto* service = file.add_service();
  service->set_name("NoKind");
  auto* method = service->add_method();
  method->set_name("Open");
  method->set_input_type(".BrowserId");
  method->set_output_type(".BrowserId");
  method->set_client_streaming(true);
  method->set_server_streaming(true);
  ASSERT_NE(BrowserId::descriptor(), nullptr);
  google::protobuf::DescriptorPool pool(
      google::protobuf::DescriptorPool::generated_pool());
  const auto* built = pool.BuildFile(file);
  ASSERT_NE(built, nullptr);

  BrowserWindowRpc unused;
  WindowMessageReader reader(unused, *built->service(0)->method(0));
  for (const std::string& payload : PlainPayloads()) {
    EXPECT_EQ(Read(reader, payload), "other ''");
  }
}

}  // namespace
}  // namespace rpc::serving
