// Compiles the fragments of C++ in the documents as they are there, in what
// their text says around them, and runs them.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/reflection/reflection_service.h"
#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/reflection/server_reflection.pb.h"

namespace {

// GetTitle says "Window 1".
#include "documents/readme_subclass.inc"

// The browser of the pages.
class Browser {
 public:
  explicit Browser(rpc::loop::Sequence& sequence) : sequence_(sequence) {}

#include "documents/close_window_of_user.inc"

  void CloseWithoutDeadline(int64_t id) {
    rpc::CloseWindow question;
    *question.mutable_browser_id() = torvane::WindowId(id);
    question.mutable_question();
#include "documents/ask_without_deadline.inc"
  }

  const std::vector<int64_t>& closed() const {
    return closed_;
  }

 private:
  void ReallyClose(int64_t id) {
    closed_.push_back(id);
  }

  rpc::loop::Sequence& sequence_;
  std::vector<int64_t> closed_;
};

#include "documents/offer_reflection.inc"

// The server is on the same loop, which this runs.
std::unique_ptr<rpc::transport::Client> ConnectTo(rpc::loop::Loop& loop,
                                                  const std::string& path) {
  absl::StatusOr<std::unique_ptr<rpc::transport::Client>> client =
      rpc::transport::Client::Connect(loop, path);
  EXPECT_TRUE(client.ok()) << client.status();
  return *std::move(client);
}

const google::protobuf::MethodDescriptor* MethodOf(const char* name) {
  return rpc::BrowserWindow::descriptor()->FindMethodByName(name);
}

// A server with that service, and a client that is connected.
class DocumentedFragments : public testing::Test {
 protected:
  DocumentedFragments() {
    server_.AddService(&service_);
    const std::string path = folder_.File("socket");
    EXPECT_TRUE(server_.Listen(path).ok());
    client_ = ConnectTo(loop_, path);
  }

  // What a client sends is served in order, so a reply comes after what was
  // subscribed before the call.
  void WaitUntilSubscribed() {
    rpc::BrowserWindow_Stub windows(client_.get());
    rpc::transport::ClientController controller;
    google::protobuf::StringValue title;
    const BrowserId id = torvane::WindowId(1);
    windows.GetTitle(&controller, &id, &title, nullptr);
    EXPECT_EQ(title.value(), "Window 1");
  }

  torvane::PrivateFolder folder_;
  rpc::loop::Loop loop_;
  WindowService service_;
  rpc::transport::Server server_{loop_};
  std::unique_ptr<rpc::transport::Client> client_;
};

using Answerer = rpc::transport::CallbackAnswerer<rpc::CloseWindow>;
using Subscriber = rpc::transport::EventSubscriber<rpc::BrowserWindowClosed>;

TEST_F(DocumentedFragments, CallGetsTheTitleOfTheServicesSubclass) {
  auto& client = client_;
  rpc::transport::ClientController controller;
  google::protobuf::StringValue title;
  const BrowserId id = torvane::WindowId(7);
  bool over = false;
  google::protobuf::Closure* closure = google::protobuf::NewCallback(
      +[](bool* flag) { *flag = true; }, &over);
#include "documents/stub_call.inc"
  EXPECT_TRUE(loop_.RunUntil([&over] { return over; }));
  EXPECT_EQ(title.value(), "Window 7");
}

TEST_F(DocumentedFragments, WindowClosesUnlessItsClientForbidsIt) {
  Browser browser(loop_);
  int asked = 0;
  Answerer answerer(
      *client_, MethodOf("OnCloseWindow"),
      [&asked](const rpc::CloseWindow& question, const Answerer::Reply& reply) {
        asked++;
        rpc::CloseWindow answer;
        answer.mutable_response()->set_allowed(question.browser_id().value() ==
                                               2);
        EXPECT_TRUE(reply.Answer(answer).ok());
      });
  for (const int64_t id : {1, 2})
    EXPECT_TRUE(answerer.Subscribe(torvane::WindowId(id)));
  WaitUntilSubscribed();
  for (const int64_t id : {1, 2, 3})
    browser.CloseWindowOfUser(id);
  EXPECT_TRUE(loop_.RunUntil([&] { return browser.closed().size() == 2; }));
  for (const int64_t id : {1, 2, 3})
    browser.CloseWithoutDeadline(id);
  EXPECT_TRUE(loop_.RunUntil([&] { return browser.closed().size() == 4; }));
  EXPECT_EQ(browser.closed(), (std::vector<int64_t>{3, 2, 3, 2}));
  EXPECT_EQ(asked, 4);
}

TEST_F(DocumentedFragments, EventsArePublishedHereAndFromAnotherThread) {
  std::vector<int64_t> heard;
  Subscriber subscriber(*client_, MethodOf("WhenBrowserWindowClosed"),
                        [&heard](const rpc::BrowserWindowClosed& event) {
                          heard.push_back(event.browser_id().value());
                        });
  for (const int64_t id : {1, 2})
    EXPECT_TRUE(subscriber.Subscribe(torvane::WindowId(id)));
  WaitUntilSubscribed();
  {
    const int64_t id = 1;
#include "documents/publish_closing.inc"
  }
  std::thread elsewhere([&loop = loop_] {
    const BrowserId id = torvane::WindowId(2);
    rpc::BrowserWindowClosed event;
    *event.mutable_browser_id() = id;
#include "documents/post_from_elsewhere.inc"
  });
  EXPECT_TRUE(loop_.RunUntil([&heard] { return heard.size() == 2; }));
  elsewhere.join();
  EXPECT_EQ(heard, (std::vector<int64_t>{1, 2}));
}

TEST(DocumentedHost, OffersItsServicesByReflection) {
  const torvane::PrivateFolder folder;
  rpc::loop::Loop loop;
  Host host(loop);
  ASSERT_TRUE(host.server.Listen(folder.File("socket")).ok());
  const std::unique_ptr<rpc::transport::Client> client =
      ConnectTo(loop, folder.File("socket"));
  rpc::reflection::ServerReflection_Stub stub(client.get());
  rpc::transport::ClientController controller;
  const rpc::reflection::ListServicesRequest everything;
  rpc::reflection::ServiceList services;
  stub.ListServices(&controller, &everything, &services, nullptr);
  ASSERT_EQ(services.services_size(), 1) << controller.ErrorText();
  EXPECT_EQ(services.services(0), "rpc.reflection.ServerReflection");
}

}  // namespace
