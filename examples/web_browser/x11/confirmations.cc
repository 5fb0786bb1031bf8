#include "examples/web_browser/x11/confirmations.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace web_browser::x11 {

struct Confirmations::Waiting {
  Change change;
  // What happens next to it, unless it shows before.
  enum class Phase { kFence, kGrace } phase = Phase::kFence;
  // The number of the fence that is under way.
  uint64_t fence = 0;
  int passes = 0;
  // The number of the mark that was sent at the deadline, 0 before that, and
  // how many passes there were by then.
  uint64_t mark = 0;
  int passes_at_deadline = 0;
  std::unique_ptr<rpc::loop::Timer> deadline;
  std::unique_ptr<rpc::loop::Timer> grace;
};

Confirmations::Confirmations(rpc::loop::Sequence& sequence,
                             SendFence send_fence,
                             SendMark send_mark,
                             std::chrono::milliseconds deadline)
    : sequence_(sequence),
      send_fence_(std::move(send_fence)),
      send_mark_(std::move(send_mark)),
      deadline_(deadline) {}

Confirmations::~Confirmations() = default;

void Confirmations::Await(Change change) {
  const Place place = waiting_.emplace(waiting_.end());
  place->change = std::move(change);
  place->fence = send_fence_();
  StartDeadline(place);
}

void Confirmations::StartDeadline(Place place) {
  place->mark = 0;
  place->deadline = sequence_.RunAfter(deadline_, [this, place] {
    place->passes_at_deadline = place->passes;
    place->mark = send_mark_();
  });
}

void Confirmations::OnEvent() {
  for (Place place = waiting_.begin(); place != waiting_.end();) {
    const Place next = std::next(place);
    if (HasPassedEnough(*place)) {
      FinishIfItShows(place);
    }
    place = next;
  }
}

void Confirmations::OnFencePassed(uint64_t number) {
  for (Place place = waiting_.begin(); place != waiting_.end();) {
    const Place next = std::next(place);
    if (place->phase == Waiting::Phase::kFence && place->fence <= number) {
      OnPassed(place);
    }
    place = next;
  }
}

void Confirmations::OnMarkPassed(uint64_t number) {
  for (Place place = waiting_.begin(); place != waiting_.end();) {
    const Place next = std::next(place);
    if (place->mark != 0 && place->mark <= number) {
      if (place->passes > place->passes_at_deadline) {
        StartDeadline(place);
      } else {
        Finish(place, place->change.timeout());
      }
    }
    place = next;
  }
}

bool Confirmations::HasPassedEnough(const Waiting& waiting) const {
  return waiting.passes >= waiting.change.passes;
}

void Confirmations::OnPassed(Place place) {
  ++place->passes;
  if (HasPassedEnough(*place) && FinishIfItShows(place)) {
    return;
  }
  if (place->passes < std::max(kPasses, place->change.passes)) {
    place->fence = send_fence_();
    return;
  }
  if (place->change.grace.count() == 0) {
    return Finish(place, place->change.refusal());
  }
  place->phase = Waiting::Phase::kGrace;
  place->grace = sequence_.RunAfter(place->change.grace, [this, place] {
    if (!FinishIfItShows(place)) {
      Finish(place, place->change.refusal());
    }
  });
}

bool Confirmations::FinishIfItShows(Place place) {
  switch (place->change.look()) {
    case Verdict::kHolds:
      Finish(place, absl::OkStatus());
      return true;
    case Verdict::kGone:
      Finish(place, place->change.gone);
      return true;
    case Verdict::kNotYet:
      return false;
  }
  return false;
}

void Confirmations::Finish(Place place, absl::Status status) {
  sequence_.Post([done = std::move(place->change.done),
                  status = std::move(status)]() mutable { done(status); });
  waiting_.erase(place);
}

}  // namespace web_browser::x11
