// Waits until the desktop has confirmed what was requested of it, or has
// refused it. Knows no display: fences are sent by a function, and state is
// looked at by another one.
//
//   Confirmations confirmations(loop, [&] { return fence.Send(); },
//                               [&] { return mark.Send(); });
//   confirmations.Await({.look = [&] { return LookWhetherItIsMaximized(); },
//                        .refusal = [&] { return SayWhoRefused(); },
//                        .timeout = [&] { return SayWhoHangs(); },
//                        .done = std::move(done)});
//   ...
//   confirmations.OnEvent();                     for each event of the display
//   confirmations.OnFencePassed(fence.passed());
//   confirmations.OnMarkPassed(mark.passed());
//
// The request has been sent when Await() is called, which sends a fence behind
// it. What holds before that fence has passed proves nothing: it may be of the
// time before the request. Once it has, Await()'s `look` is asked:
//
//   kHolds    done, OK;
//   kGone     done, with the status `gone`;
//   kNotYet   another fence is sent, since some window managers do a part of it
//             later. `look` is asked at each event and each fence from then on.
//             After kPasses fences, and `grace` after those, it counts as
//             refused: done with what `refusal` returns.
//
// The deadline after Await() a change ends with what `timeout` returns, unless
// it was we who had no time: first a mark is sent, behind which all that had
// come by then has been looked at. If a fence was among it, the window manager
// does not hang, and the deadline begins anew.
//
// `done` runs exactly once, as a task of the sequence, never within Await() or
// OnEvent(). When Confirmations goes, `done` of those that still wait is
// destroyed without being run.
//
// Two changes of one window, or of what windows have in common, such as the
// activation, do not wait at the same time without confusing each other: the
// second one undoes what the first one looks for. One after the other: see
// change_queue.h.
//
// Ownership: of the functions. What they refer to must outlive this object.
//
// Sequence: that of the constructor, which must outlive this object.
//
// Failure: as above, by the status.

#ifndef EXAMPLES_WEB_BROWSER_X11_CONFIRMATIONS_H_
#define EXAMPLES_WEB_BROWSER_X11_CONFIRMATIONS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "absl/functional/any_invocable.h"
#include "absl/status/status.h"
#include "core/common/rpc/loop/sequence.h"

namespace web_browser::x11 {

using Completion = absl::AnyInvocable<void(const absl::Status&)>;

// What a look at the confirmed state has shown.
enum class Verdict {
  kHolds,
  kNotYet,
  // The window is no more.
  kGone
};

class Confirmations {
 public:
  // Sends a fence behind everything before it; returns its number, from 1 on.
  using SendFence = absl::AnyInvocable<uint64_t()>;

  // Sends a mark behind all that the server has told; returns its number, from
  // 1 on.
  using SendMark = absl::AnyInvocable<uint64_t()>;

  // How often a fence must come back before a change that does not show counts
  // as refused.
  static constexpr int kPasses = 4;
  // How long a window manager may let one wait before it counts as hanging,
  // unless another time is given.
  static constexpr std::chrono::milliseconds kDeadline{1000};

  struct Change {
    absl::AnyInvocable<Verdict()> look;
    // Who has refused, and why.
    absl::AnyInvocable<absl::Status()> refusal;
    // Who has not said anything in time: DEADLINE_EXCEEDED.
    absl::AnyInvocable<absl::Status()> timeout;
    // What to say of a window that is no more: NOT_FOUND.
    absl::Status gone;
    Completion done;
    // Fences that must have passed before `look` counts.
    int passes = 1;
    // How long the window manager may take after it has let the last fence
    // pass, for what it does when it has nothing else to do.
    std::chrono::milliseconds grace{0};
  };

  Confirmations(rpc::loop::Sequence& sequence,
                SendFence send_fence,
                SendMark send_mark,
                std::chrono::milliseconds deadline = kDeadline);
  Confirmations(const Confirmations&) = delete;
  Confirmations& operator=(const Confirmations&) = delete;
  ~Confirmations();

  // Waits for what has been requested just before.
  void Await(Change change);

  // Something has happened on the display: looks again.
  void OnEvent();

  // All fences up to this number have passed.
  void OnFencePassed(uint64_t number);

  // All marks up to this number have come back.
  void OnMarkPassed(uint64_t number);

  // How many changes wait.
  size_t waiting() const { return waiting_.size(); }

 private:
  struct Waiting;
  using Place = std::list<Waiting>::iterator;

  void StartDeadline(Place place);
  bool HasPassedEnough(const Waiting& waiting) const;
  bool FinishIfItShows(Place place);
  void OnPassed(Place place);
  void Finish(Place place, absl::Status status);

  rpc::loop::Sequence& sequence_;
  SendFence send_fence_;
  SendMark send_mark_;
  const std::chrono::milliseconds deadline_;
  std::list<Waiting> waiting_;
};

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_CONFIRMATIONS_H_
