// What holds for each of the three callback messages alike, and is a template's
// promise rather than one instance's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "base/logging.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

template <typename T>
struct MethodOf;
template <>
struct MethodOf<rpc::CanExecuteCommand> {
  static constexpr int kIndex = 38;
};
template <>
struct MethodOf<rpc::ShowContextMenu> {
  static constexpr int kIndex = 39;
};
template <>
struct MethodOf<rpc::CloseWindow> {
  static constexpr int kIndex = 40;
};

template <typename T>
class CallbackMessageTest : public testing::Test {
 protected:
  using Stream = CallbackStream<T>;

  CallbackMessageTest() { logging::SetLogMessageHandler(&Keep); }

  ~CallbackMessageTest() override {
    logging::SetLogMessageHandler(nullptr);
    records_ = 0;
  }

  std::unique_ptr<Stream> Open() {
    return std::make_unique<Stream>(
        &service_,
        rpc::BrowserWindowRpc::descriptor()->method(MethodOf<T>::kIndex),
        MakeChannel());
  }

  static bool Keep(int severity,
                   const char* file,
                   int line,
                   size_t text_start,
                   const std::string& record) {
    ++records_;
    EXPECT_EQ(severity, logging::LOGGING_WARNING);
    EXPECT_STREQ(file, "src/core/common/rpc/stream/callback_stream.h");
    EXPECT_EQ(line, 194);
    EXPECT_EQ(record.substr(text_start),
              "The subscriber is already associated with another stream. "
              "value: 7\n");
    answers_at_record_ = Stream::stream_map_.begin()->second;
    return true;
  }

  rpc::BrowserWindowRpc service_;
  static inline int records_ = 0;
  // Who answered for the window when the record was written.
  static inline Stream* answers_at_record_ = nullptr;
};

using Messages = testing::
    Types<rpc::CanExecuteCommand, rpc::ShowContextMenu, rpc::CloseWindow>;
TYPED_TEST_SUITE(CallbackMessageTest, Messages);

TYPED_TEST(CallbackMessageTest,
           TheTakeOverIsRecordedBeforeTheWindowIsBoundAnew) {
  using Stream = CallbackStream<TypeParam>;
  const auto first = this->Open();
  const auto second = this->Open();
  first->Subscribe(WindowId(7));
  EXPECT_EQ(this->records_, 0);

  second->Subscribe(WindowId(7));
  EXPECT_EQ(this->records_, 1);
  EXPECT_EQ(this->answers_at_record_, first.get());
  EXPECT_EQ(Stream::stream_map_.begin()->second, second.get());

  first->OnCompleted();
  second->OnCompleted();
  EXPECT_TRUE(Stream::stream_map_.empty());
}

}  // namespace
}  // namespace torvane
