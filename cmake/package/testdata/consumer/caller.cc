// Only calls, so it is compiled with its own flags: with exceptions and type
// information.
//
//   caller PATH    asks the page's program at PATH for a title, closes the
//                  window and waits for the event about it

#include <cstdio>
#include <stdexcept>
#include <string>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "rpc/browser/browser_window.pb.h"

namespace {

class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void Check(const rpc::transport::ClientController& controller) {
  if (!controller.status().ok())
    throw Failure(std::string(controller.status().message()));
}

void Run(const std::string& path) {
  rpc::loop::Loop loop;
  auto client = rpc::transport::Client::Connect(loop, path);
  if (!client.ok())
    throw Failure(std::string(client.status().message()));
  rpc::BrowserWindow_Stub windows(client->get());
  BrowserId window;
  window.set_value(1);

  bool told = false;
  rpc::transport::EventSubscriber<rpc::BrowserWindowClosed> closed(
      **client,
      rpc::BrowserWindow::descriptor()->FindMethodByName(
          "WhenBrowserWindowClosed"),
      [&](const rpc::BrowserWindowClosed&) { told = true; });
  closed.Subscribe(window);

  google::protobuf::StringValue title;
  rpc::transport::ClientController controller;
  windows.GetTitle(&controller, &window, &title, nullptr);
  Check(controller);
  std::printf("%s\n", title.value().c_str());

  google::protobuf::BoolValue has_closed;
  controller.Reset();
  windows.Close(&controller, &window, &has_closed, nullptr);
  Check(controller);
  loop.RunUntil([&] { return told; });
  std::printf("closed\n");

  controller.Reset();
  windows.GetTitle(&controller, &window, &title, nullptr);
  Check(controller);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2)
    return 2;
  try {
    Run(argv[1]);
  } catch (const std::exception& error) {
    const bool is_failure = dynamic_cast<const Failure*>(&error) != nullptr;
    std::printf("%s: %s\n", is_failure ? "failure" : "error", error.what());
  }
}
