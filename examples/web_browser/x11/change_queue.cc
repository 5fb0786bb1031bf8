#include "examples/web_browser/x11/change_queue.h"

#include <utility>

namespace web_browser::x11 {

struct ChangeQueue::State : std::enable_shared_from_this<State> {
  explicit State(rpc::loop::Sequence& sequence) : sequence(sequence) {}

  // Says once that a change is over: when it is called or destroyed.
  class Over {
   public:
    explicit Over(std::weak_ptr<State> state) : state_(std::move(state)) {}
    Over(Over&& other) noexcept : state_(std::exchange(other.state_, {})) {}
    Over& operator=(Over&&) = delete;
    ~Over() { Say(); }

    void operator()() { Say(); }

   private:
    void Say() {
      if (const auto state = std::exchange(state_, {}).lock()) {
        state->Finish();
      }
    }

    std::weak_ptr<State> state_;
  };

  void Add(Change change) {
    waiting.push_back(std::move(change));
    BeginNext();
  }

  void Finish() {
    busy = false;
    BeginNext();
  }

  void BeginNext() {
    if (busy || waiting.empty()) {
      return;
    }
    busy = true;
    sequence.Post([state = weak_from_this()] {
      if (const auto self = state.lock()) {
        Change change = std::move(self->waiting.front());
        self->waiting.pop_front();
        change(Over(state));
      }
    });
  }

  rpc::loop::Sequence& sequence;
  // Those that have not begun.
  std::deque<Change> waiting;
  // From the moment at which a change is about to begin until it is over.
  bool busy = false;
};

ChangeQueue::ChangeQueue(rpc::loop::Sequence& sequence)
    : state_(std::make_shared<State>(sequence)) {}

ChangeQueue::~ChangeQueue() = default;

void ChangeQueue::Add(Change change) {
  state_->Add(std::move(change));
}

size_t ChangeQueue::size() const {
  return state_->waiting.size() + (state_->busy ? 1 : 0);
}

}  // namespace web_browser::x11
