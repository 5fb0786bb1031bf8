#include "core/common/rpc/loop/glib_main_loop.h"

#include <glib.h>

#include <chrono>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/loop/glib_wake_up.h"

namespace rpc::loop {
namespace {

constexpr char kSourceName[] = "rpc::loop::Loop";

// What GLib passes for a poll that may wait for ever.
constexpr int kForever = -1;

// How many iterations of the context are GLib's own after a turn of the loop,
// for as long as it has something to do. Two, since g_main_context_pending()
// looks like an iteration, but runs nothing: with one, callbacks would never
// run in while (gtk_events_pending()) gtk_main_iteration().
constexpr int kIterationsInATurn = 2;

}  // namespace

// One iteration of the context goes through these operations in this order:
//
//   Prepare()    GLib asks its sources what is ready;
//   Poll()       finds out which descriptors are ready for GLib, without
//   waiting.
//                GLib leaves it out if there is nothing to poll for;
//   IsReady()    tells GLib whether the loop gets the turn;
//   TakeTurn()   runs tasks of the loop, and waits where GLib would have
//   waited.
//
// A task may run the context again, so nothing is kept across TakeTurn().
class GlibMainLoop::Joint {
 public:
  Joint(Loop& loop, GMainContext* context)
      : loop_(loop),
        work_(loop),
        wake_up_(loop.context()),
        context_(g_main_context_ref(context)),
        former_poll_(g_main_context_get_poll_func(context)),
        source_(g_source_new(&kSourceFunctions, sizeof(Source))) {
    ABSL_CHECK(on_this_thread_ == nullptr)
        << "this thread runs a GlibMainLoop already";
    on_this_thread_ = this;
    reinterpret_cast<Source*>(source_)->joint = this;
    g_source_set_name(source_, kSourceName);
    // Before all others: it is ready for every other iteration at most while
    // others are ready, so none of them starves.
    g_source_set_priority(source_, G_MININT);
    g_source_set_can_recurse(source_, TRUE);
    g_source_attach(source_, context_);
    g_main_context_set_poll_func(context_, &Joint::PollOnThisThread);
  }
  Joint(const Joint&) = delete;
  Joint& operator=(const Joint&) = delete;
  ~Joint() {
    g_main_context_set_poll_func(context_, former_poll_);
    g_source_destroy(source_);
    g_source_unref(source_);
    g_main_context_unref(context_);
    on_this_thread_ = nullptr;
  }

  void IterateUntilStopped() {
    while (!loop_.IsStopped()) {
      g_main_context_iteration(context_, TRUE);
    }
  }

 private:
  enum class Turn {
    // GLib's own.
    kGlib,
    // The loop runs what is ready.
    kRunReady,
    // Nothing is ready for GLib: the loop waits for what comes.
    kWait
  };

  struct Source {
    GSource base;
    Joint* joint;
  };

  // GPollFunc. The context may be polled by another thread, of which we know
  // nothing.
  static gint PollOnThisThread(GPollFD* descriptors,
                               guint count,
                               gint timeout) {
    return on_this_thread_ != nullptr
               ? on_this_thread_->Poll(descriptors, count, timeout)
               : g_poll(descriptors, count, timeout);
  }

  static gboolean Prepare(GSource* source, gint* timeout) {
    reinterpret_cast<Source*>(source)->joint->PassTurn();
    *timeout = kForever;
    return FALSE;
  }

  static gboolean IsReady(GSource* source) {
    const Turn turn = reinterpret_cast<Source*>(source)->joint->turn_;
    return turn == Turn::kRunReady || turn == Turn::kWait;
  }

  static gboolean Dispatch(GSource* source, GSourceFunc, gpointer) {
    reinterpret_cast<Source*>(source)->joint->TakeTurn();
    return G_SOURCE_CONTINUE;
  }

  // As it is while something is ready for GLib. Poll() knows when nothing is.
  void PassTurn() {
    if (loop_.IsStopped()) {
      turn_ = Turn::kGlib;
    } else if (glibs_iterations_ > 0) {
      turn_ = Turn::kGlib;
      --glibs_iterations_;
    } else {
      turn_ = Turn::kRunReady;
    }
  }

  int Poll(GPollFD* descriptors, unsigned count, int timeout) {
    // Whose tasks do not run until the run that it has stopped is over.
    if (loop_.IsStopped()) {
      return former_poll_(descriptors, count, timeout);
    }
    const int ready = former_poll_(descriptors, count, 0);
    if (ready == 0 && timeout != 0) {
      wake_up_.Watch(descriptors, count);
      timeout_ = timeout;
      turn_ = Turn::kWait;
    } else {
      wake_up_.OnReady();
    }
    return ready;
  }

  void TakeTurn() {
    const Loop::Running running(loop_);
    asio::io_context& context = loop_.context();
    glibs_iterations_ = kIterationsInATurn;
    if (std::exchange(turn_, Turn::kGlib) == Turn::kWait) {
      Wait(context);
    }
    for (int task = 0; task < kTasksInATurn && context.poll_one() > 0; ++task) {
    }
  }

  void Wait(asio::io_context& context) {
    wake_up_.Arm();
    if (timeout_ == kForever) {
      context.run_one();
    } else {
      context.run_one_for(std::chrono::milliseconds(timeout_));
    }
  }

  static GSourceFuncs kSourceFunctions;
  static thread_local Joint* on_this_thread_;

  Loop& loop_;
  // An idle loop is not one that has come to its end.
  const Loop::Work work_;
  GlibWakeUp wake_up_;
  GMainContext* const context_;
  const GPollFunc former_poll_;
  GSource* const source_;
  // Whose the next dispatch is.
  Turn turn_ = Turn::kGlib;
  // That are left of GLib's turn.
  int glibs_iterations_ = 0;
  // In milliseconds, for Turn::kWait.
  int timeout_ = kForever;
};

GSourceFuncs GlibMainLoop::Joint::kSourceFunctions = {
    &Joint::Prepare, &Joint::IsReady, &Joint::Dispatch,
    nullptr,         nullptr,         nullptr};
thread_local GlibMainLoop::Joint* GlibMainLoop::Joint::on_this_thread_ =
    nullptr;

GlibMainLoop::GlibMainLoop(Loop& loop, GMainContext* context)
    : loop_(loop),
      joint_(std::make_unique<Joint>(
          loop,
          context != nullptr ? context : g_main_context_default())) {}

GlibMainLoop::~GlibMainLoop() = default;

void GlibMainLoop::Run() {
  const Loop::Running running(loop_);
  joint_->IterateUntilStopped();
}

bool GlibMainLoop::IsOf(GSource* source) {
  const char* const name = g_source_get_name(source);
  return name != nullptr && std::string_view(name) == kSourceName;
}

}  // namespace rpc::loop
