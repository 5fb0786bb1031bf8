// Runs a Loop and GLib's main loop on one thread, for programs whose toolkit is
// built on GLib: the one sequence of streams and services is then also that of
// the windows.
//
//   rpc::loop::Loop loop;
//   rpc::loop::GlibMainLoop main_loop(loop);
//   rpc::transport::Server server(loop);
//   ...
//   gtk_widget_show(window);
//   main_loop.Run();               // until loop.Stop()
//
// What belongs to both and to one only:
//
// - Run() takes the place of Loop::Run() and of g_main_loop_run(). Within it
//   Loop::IsCurrent() holds in GLib's callbacks, too.
// - Whoever of both has something to do gets a turn: GLib two iterations,
//   the loop at most kTasksInATurn tasks. Neither can keep the other one
//   waiting for longer than that. When neither has, the thread sleeps until a
//   descriptor, a timer or a task of another thread wakes it.
// - GLib's main loop may be run again inside of a callback of GLib's or a task
//   of the loop, as menus and dialogs do: everything is served there as well.
//   Loop::RunUntil() within a task runs the loop's tasks only; GLib waits.
// - Loop::Stop() ends Run() after the task or callback that is being run. It
//   does not end main loops of GLib's that were run inside of it: they end as
//   always, and from the stop on serve only GLib.
//
// How: the context gets a poll function of ours, by
// g_main_context_set_poll_func(), and a source. Where GLib would wait, the poll
// function leaves the waiting to the source, whose dispatch lets the loop wait,
// for what concerns either. Tasks therefore run where GLib expects callbacks,
// not within its polling, where nothing may run it again.
//
// Ownership: the program's. Loop and context must outlive it; it keeps a
// reference to the context. Afterwards the context polls as before.
//
// Sequence: the thread that runs the context. One object for a thread.
//
// Failure: a system that grants no descriptor ends the process.

#ifndef CORE_COMMON_RPC_LOOP_GLIB_MAIN_LOOP_H_
#define CORE_COMMON_RPC_LOOP_GLIB_MAIN_LOOP_H_

#include <memory>

#include "core/common/rpc/loop/loop.h"

// GLib's GMainContext.
struct _GMainContext;
struct _GSource;

namespace rpc::loop {

class GlibMainLoop {
 public:
  // The loop's tasks in one turn, at most, before GLib has its own.
  static constexpr int kTasksInATurn = 32;

  // Null for the default context.
  explicit GlibMainLoop(Loop& loop, _GMainContext* context = nullptr);
  GlibMainLoop(const GlibMainLoop&) = delete;
  GlibMainLoop& operator=(const GlibMainLoop&) = delete;
  ~GlibMainLoop();

  // Runs both until Loop::Stop() is called.
  void Run();

  // Whether GLib runs the loop's tasks by this source of its. Any thread.
  static bool IsOf(_GSource* source);

 private:
  class Joint;

  Loop& loop_;
  const std::unique_ptr<Joint> joint_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_GLIB_MAIN_LOOP_H_
