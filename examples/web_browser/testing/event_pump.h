// Hands the events of an X connection over as tasks of a loop: what GDK does in
// a program with a toolkit.
//
//   EventPump pump(loop, connection, [&](const XEvent& event) { ... });
//   pump.RunUntil([&] { return done; });
//
// Ownership: the connection and the loop must outlive it.
//
// Sequence: the loop's.

#ifndef EXAMPLES_WEB_BROWSER_TESTING_EVENT_PUMP_H_
#define EXAMPLES_WEB_BROWSER_TESTING_EVENT_PUMP_H_

#include <functional>
#include <utility>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/readable_watch.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser {

class EventPump {
 public:
  using Handler = std::function<void(const XEvent&)>;

  EventPump(rpc::loop::Loop& loop, Display* connection, Handler handler)
      : loop_(loop),
        connection_(connection),
        handler_(std::move(handler)),
        watch_(loop, ConnectionNumber(connection), [this] { Drain(); }) {}

  // False if the loop was stopped or has nothing left to wait for.
  template <typename Condition>
  bool RunUntil(const Condition& condition) {
    return loop_.RunUntil([&] {
      Drain();
      return condition();
    });
  }

 private:
  // Xlib may have read events together with a reply: then nothing is left that
  // could make the connection readable.
  void Drain() {
    while (XPending(connection_) > 0) {
      XEvent event;
      XNextEvent(connection_, &event);
      handler_(event);
    }
  }

  rpc::loop::Loop& loop_;
  Display* const connection_;
  const Handler handler_;
  const rpc::loop::ReadableWatch watch_;
};

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_TESTING_EVENT_PUMP_H_
