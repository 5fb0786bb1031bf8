// Lets one change be over before the next one begins.
//
//   queue.Add([=](ChangeQueue::Done over) {
//     window->SetMaximized(false, [=, over = std::move(over)](auto& status) {
//       done(status);
//       over();
//     });
//   });
//
// Windows share a desktop: activating one takes the activation from another,
// and a window that is to be large now and small a moment later is never seen
// large. So whoever makes changes makes them one after the other, all windows'
// together. A change may have several steps; it is over when it says so.
//
// Ownership: of the changes. What they refer to must outlive the queue.
//
// Sequence: that of the constructor. A change begins as a task of its own,
// never within Add().
//
// Failure: a change whose Done is dropped without having been called is over as
// well.

#ifndef EXAMPLES_WEB_BROWSER_X11_CHANGE_QUEUE_H_
#define EXAMPLES_WEB_BROWSER_X11_CHANGE_QUEUE_H_

#include <cstddef>
#include <deque>
#include <memory>

#include "absl/functional/any_invocable.h"
#include "core/common/rpc/loop/sequence.h"

namespace web_browser::x11 {

class ChangeQueue {
 public:
  // Says that the change is over. Called once at most; may outlive the queue,
  // and then does nothing.
  using Done = absl::AnyInvocable<void()>;
  using Change = absl::AnyInvocable<void(Done)>;

  explicit ChangeQueue(rpc::loop::Sequence& sequence);
  ChangeQueue(const ChangeQueue&) = delete;
  ChangeQueue& operator=(const ChangeQueue&) = delete;
  ~ChangeQueue();

  void Add(Change change);

  // Those that are not over.
  size_t size() const;

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_CHANGE_QUEUE_H_
