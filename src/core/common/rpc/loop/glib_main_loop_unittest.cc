#include "core/common/rpc/loop/glib_main_loop.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/readable_watch.h"
#include "core/common/rpc/loop/scoped_fd.h"

namespace rpc::loop {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

// A callback of GLib's that is a function; removed when it returns false.
using Callback = std::function<bool()>;

gboolean CallBack(gpointer callback) {
  return (*static_cast<Callback*>(callback))();
}

gboolean CallBackForDescriptor(gint, GIOCondition, gpointer callback) {
  return CallBack(callback);
}

void Delete(gpointer callback) {
  delete static_cast<Callback*>(callback);
}

struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    read_end = ScopedFd(ends[0]);
    write_end = ScopedFd(ends[1]);
  }
  void Say() const { EXPECT_EQ(write(write_end.get(), "!", 1), 1); }
  bool Hear() const {
    char byte;
    return read(read_end.get(), &byte, 1) == 1;
  }

  ScopedFd read_end;
  ScopedFd write_end;
};

// Waits until the thread sleeps: it has nothing to do, or holds no processor.
void WaitUntilAsleep(pid_t thread) {
  const std::string path =
      "/proc/self/task/" + std::to_string(thread) + "/stat";
  char state = 'R';
  while (state != 'S') {
    std::this_thread::yield();
    std::ifstream stat(path);
    std::string number;
    std::string name;
    stat >> number >> name >> state;
  }
}

// Counts the iterations of a context: a loop that sleeps makes none. How much
// of the processor it has used says less, since others use it, too.
struct IterationCounter {
  GSource base;
  int count;

  static gboolean Prepare(GSource* source, gint* timeout) {
    ++reinterpret_cast<IterationCounter*>(source)->count;
    *timeout = -1;
    return FALSE;
  }
};
GSourceFuncs iteration_counter_functions = {
    &IterationCounter::Prepare, nullptr, nullptr, nullptr, nullptr, nullptr};

// More than it takes to fall asleep again after an event or two.
constexpr int kFewIterations = 20;

// Each test has a context of its own, with nothing of another test in it.
class GlibMainLoopTest : public ::testing::Test {
 protected:
  GlibMainLoopTest() { g_source_attach(counter_, context_); }
  ~GlibMainLoopTest() override {
    g_source_unref(counter_);
    g_main_context_unref(context_);
  }

  // Of the context, so far.
  int iterations() const {
    return reinterpret_cast<IterationCounter*>(counter_)->count;
  }

  guint Attach(GSource* source, int priority, Callback callback) {
    g_source_set_priority(source, priority);
    g_source_set_callback(source, &CallBack, new Callback(std::move(callback)),
                          &Delete);
    return Attach(source);
  }
  guint OnIdle(Callback callback, int priority = G_PRIORITY_DEFAULT_IDLE) {
    return Attach(g_idle_source_new(), priority, std::move(callback));
  }
  guint OnTimeout(unsigned ms, Callback callback) {
    return Attach(g_timeout_source_new(ms), G_PRIORITY_DEFAULT,
                  std::move(callback));
  }
  guint OnReadable(int descriptor, Callback callback) {
    GSource* source = g_unix_fd_source_new(descriptor, G_IO_IN);
    g_source_set_callback(source, G_SOURCE_FUNC(&CallBackForDescriptor),
                          new Callback(std::move(callback)), &Delete);
    return Attach(source);
  }
  void Remove(guint source) {
    g_source_destroy(g_main_context_find_source_by_id(context_, source));
  }

  // Runs GLib's loop, inside of whatever runs already, until `condition` holds,
  // which callbacks and tasks make true.
  void RunNested(const std::function<bool()>& condition) {
    while (!condition()) {
      g_main_context_iteration(context_, TRUE);
    }
  }

  Loop loop_;
  GMainContext* const context_ = g_main_context_new();
  GlibMainLoop main_loop_{loop_, context_};

 private:
  GSource* const counter_ =
      g_source_new(&iteration_counter_functions, sizeof(IterationCounter));

  guint Attach(GSource* source) {
    const guint id = g_source_attach(source, context_);
    g_source_unref(source);
    return id;
  }
};

TEST_F(GlibMainLoopTest, RunsTasksAndCallbacksOnOneThread) {
  std::vector<std::thread::id> threads;
  loop_.Post([&] {
    threads.push_back(std::this_thread::get_id());
    OnIdle([&] {
      threads.push_back(std::this_thread::get_id());
      loop_.Stop();
      return false;
    });
  });
  main_loop_.Run();
  EXPECT_EQ(threads, std::vector(2, std::this_thread::get_id()));
}

TEST_F(GlibMainLoopTest, CallbacksAreOnTheSequence) {
  bool within = false;
  OnIdle([&] {
    within = loop_.IsCurrent();
    loop_.Stop();
    return false;
  });
  main_loop_.Run();
  EXPECT_TRUE(within);
  EXPECT_FALSE(loop_.IsCurrent());
}

TEST_F(GlibMainLoopTest, TasksThatNeverEndLeaveTurnsToGlib) {
  int tasks = 0;
  Task again = [&] {
    ++tasks;
    loop_.Post([&] { again(); });
  };
  loop_.Post([&] { again(); });
  int callbacks = 0;
  int tasks_at_first = 0;
  int tasks_at_last = 0;
  OnIdle([&] {
    (callbacks == 0 ? tasks_at_first : tasks_at_last) = tasks;
    if (++callbacks == 10) {
      loop_.Stop();
    }
    return true;
  });
  main_loop_.Run();
  EXPECT_EQ(callbacks, 10);
  EXPECT_GT(tasks_at_last, tasks_at_first);
  EXPECT_LE(tasks_at_last - tasks_at_first, 9 * GlibMainLoop::kTasksInATurn);
}

TEST_F(GlibMainLoopTest, TasksThatNeverEndLeaveTurnsToDescriptorsOfGlib) {
  Task again = [&] { loop_.Post([&] { again(); }); };
  loop_.Post([&] { again(); });
  const Pipe pipe;
  OnReadable(pipe.read_end.get(), [&] {
    loop_.Stop();
    return false;
  });
  loop_.Post([&] { pipe.Say(); });
  main_loop_.Run();
  EXPECT_TRUE(pipe.Hear());
}

TEST_F(GlibMainLoopTest, CallbacksThatNeverEndLeaveTurnsToTasks) {
  int callbacks = 0;
  OnIdle(
      [&] {
        ++callbacks;
        return true;
      },
      G_PRIORITY_HIGH - 1000);
  // More than fit into one turn.
  constexpr int kTasks = 3 * GlibMainLoop::kTasksInATurn;
  const Pipe pipe;
  int tasks = 0;
  int callbacks_at_first = 0;
  int callbacks_at_last = 0;
  pipe.Say();
  // Nobody reads, so it is called again and again.
  ReadableWatch watch(loop_, pipe.read_end.get(), [&] {
    (tasks == 0 ? callbacks_at_first : callbacks_at_last) = callbacks;
    if (++tasks == kTasks) {
      loop_.Stop();
    }
  });
  main_loop_.Run();
  EXPECT_EQ(tasks, kTasks);
  EXPECT_GT(callbacks_at_last, callbacks_at_first);
  EXPECT_LE(callbacks_at_last - callbacks_at_first, 10);
}

TEST_F(GlibMainLoopTest, BusyTasksDoNotKeepLowPrioritiesOfGlibWaiting) {
  Task again = [&] { loop_.Post([&] { again(); }); };
  loop_.Post([&] { again(); });
  bool ran = false;
  OnIdle(
      [&] {
        ran = true;
        loop_.Stop();
        return false;
      },
      G_PRIORITY_LOW);
  main_loop_.Run();
  EXPECT_TRUE(ran);
}

// Once it sleeps, each of these alone wakes it. The loop of the test is what
// goes on for ever if one does not.
TEST_F(GlibMainLoopTest, WakesForEachDescriptorThatIsReadyForGlib) {
  const Pipe there;
  const Pipe back;
  int heard = 0;
  OnReadable(there.read_end.get(), [&] {
    EXPECT_TRUE(there.Hear());
    if (++heard == 100) {
      loop_.Stop();
    } else {
      back.Say();
    }
    return true;
  });
  // Asleep between the two: the other thread answers when it has been heard.
  std::thread other([&] {
    for (int i = 0; i < 100; ++i) {
      there.Say();
      while (i < 99 && !back.Hear()) {
        std::this_thread::yield();
      }
    }
  });
  main_loop_.Run();
  other.join();
  EXPECT_EQ(heard, 100);
}

TEST_F(GlibMainLoopTest, WakesForTasksOfAnotherThread) {
  const Pipe asleep;
  int ran = 0;
  std::thread other([&] {
    for (int i = 0; i < 100; ++i) {
      loop_.Post([&] {
        if (++ran == 100) {
          loop_.Stop();
        }
        asleep.Say();
      });
      while (!asleep.Hear()) {
        std::this_thread::yield();
      }
    }
  });
  main_loop_.Run();
  other.join();
  EXPECT_EQ(ran, 100);
}

TEST_F(GlibMainLoopTest, WakesForCallbacksThatAnotherThreadAdds) {
  const Pipe asleep;
  int ran = 0;
  std::thread other([&] {
    for (int i = 0; i < 100; ++i) {
      OnIdle([&] {
        if (++ran == 100) {
          loop_.Stop();
        }
        asleep.Say();
        return false;
      });
      while (!asleep.Hear()) {
        std::this_thread::yield();
      }
    }
  });
  main_loop_.Run();
  other.join();
  EXPECT_EQ(ran, 100);
}

TEST_F(GlibMainLoopTest, RunsTimersOfBoth) {
  std::vector<std::string> ran;
  std::unique_ptr<Timer> last;
  const auto first = loop_.RunAfter(milliseconds(2), [&] {
    ran.emplace_back("task");
    OnTimeout(2, [&] {
      ran.emplace_back("callback");
      last = loop_.RunAfter(milliseconds(2), [&] {
        ran.emplace_back("last task");
        loop_.Stop();
      });
      return false;
    });
  });
  main_loop_.Run();
  EXPECT_EQ(ran, (std::vector<std::string>{"task", "callback", "last task"}));
}

TEST_F(GlibMainLoopTest, SleepsForAsLongAsGlibsNextTimeout) {
  const auto start = Clock::now();
  OnTimeout(30, [&] {
    loop_.Stop();
    return false;
  });
  main_loop_.Run();
  EXPECT_GE(Clock::now() - start, milliseconds(29));
}

TEST_F(GlibMainLoopTest, SleepsWhileNothingHappens) {
  const Pipe pipe;
  OnReadable(pipe.read_end.get(), [] { return true; });
  const auto last = loop_.RunAfter(milliseconds(200), [&] { loop_.Stop(); });
  main_loop_.Run();
  EXPECT_LT(iterations(), kFewIterations);
}

TEST_F(GlibMainLoopTest, ServesTasksWhileACallbackRunsGlibAgain) {
  bool answered = false;
  bool ended = false;
  const Pipe question;
  ReadableWatch server(loop_, question.read_end.get(), [&] {
    EXPECT_TRUE(question.Hear());
    answered = true;
  });
  OnIdle([&] {
    question.Say();
    RunNested([&] { return answered; });
    ended = true;
    loop_.Stop();
    return false;
  });
  main_loop_.Run();
  EXPECT_TRUE(ended);
}

TEST_F(GlibMainLoopTest, ServesBothWhileATaskRunsGlibAgain) {
  std::vector<std::string> ran;
  loop_.Post([&] {
    OnIdle([&] {
      ran.emplace_back("callback");
      return false;
    });
    loop_.Post([&] { ran.emplace_back("task"); });
    RunNested([&] { return ran.size() == 2; });
    ran.emplace_back("outer task");
    loop_.Stop();
  });
  main_loop_.Run();
  ASSERT_EQ(ran.size(), 3U);
  EXPECT_EQ(ran.back(), "outer task");
}

// GLib keeps the array that it polls with, and makes it anew when it has grown.
// While a task runs, which may run GLib again, nobody may hold the old one: so
// no task runs within the poll.
TEST_F(GlibMainLoopTest, TasksRunWhereGlibExpectsCallbacks) {
  int depth_at_once = 0;
  int depth_after_waiting = 0;
  loop_.Post([&] { depth_at_once = g_main_depth(); });
  const auto later = loop_.RunAfter(milliseconds(5), [&] {
    depth_after_waiting = g_main_depth();
    loop_.Stop();
  });
  main_loop_.Run();
  EXPECT_EQ(depth_at_once, 1);
  EXPECT_EQ(depth_after_waiting, 1);
}

TEST_F(GlibMainLoopTest, ATaskMayAddManyDescriptorsAndRunGlibAgain) {
  std::vector<std::unique_ptr<Pipe>> pipes;
  size_t heard = 0;
  loop_.Post([&] {
    for (int i = 0; i < 100; ++i) {
      pipes.push_back(std::make_unique<Pipe>());
      OnReadable(pipes.back()->read_end.get(), [&, pipe = pipes.back().get()] {
        ++heard;
        return !pipe->Hear();
      });
      pipes.back()->Say();
    }
    RunNested([&] { return heard == pipes.size(); });
    loop_.Stop();
  });
  main_loop_.Run();
  EXPECT_EQ(heard, 100U);
}

TEST_F(GlibMainLoopTest, NestedRunsMayBeDeep) {
  constexpr int kDepth = 50;
  int depth = 0;
  std::function<bool()> down = [&] {
    if (++depth < kDepth) {
      const int own = depth;
      // In turn from a task and from a callback.
      if (own % 2 == 0) {
        loop_.Post([&] { down(); });
      } else {
        OnIdle([&] { return down(); });
      }
      RunNested([&] { return depth == kDepth; });
    }
    return false;
  };
  OnIdle([&] { return down(); });
  OnIdle([&] {
    if (depth == kDepth) {
      loop_.Stop();
    }
    return depth < kDepth;
  });
  main_loop_.Run();
  EXPECT_EQ(depth, kDepth);
}

TEST_F(GlibMainLoopTest, RunUntilInATaskRunsTasksOnly) {
  bool glib_ran = false;
  bool glib_ran_within = true;
  loop_.Post([&] {
    OnIdle([&] {
      glib_ran = true;
      loop_.Stop();
      return false;
    });
    bool ran = false;
    loop_.Post([&] { ran = true; });
    EXPECT_TRUE(loop_.RunUntil([&] { return ran; }));
    glib_ran_within = glib_ran;
  });
  main_loop_.Run();
  EXPECT_FALSE(glib_ran_within);
  EXPECT_TRUE(glib_ran);
}

// What is said of "pending" callbacks must come to an end, as in the usual
// while (gtk_events_pending()) gtk_main_iteration();
TEST_F(GlibMainLoopTest, NothingIsPendingForEver) {
  int ran = 0;
  OnIdle([&] {
    OnIdle([&] {
      ++ran;
      return false;
    });
    loop_.Post([&] { ++ran; });
    while (g_main_context_pending(context_)) {
      g_main_context_iteration(context_, TRUE);
    }
    loop_.Stop();
    return false;
  });
  main_loop_.Run();
  EXPECT_EQ(ran, 2);
}

TEST_F(GlibMainLoopTest, WatchesTheNewDescriptorOfANumberThatWasUsedBefore) {
  const Pipe first;
  const Pipe second;
  const int number = first.read_end.get();
  const guint first_source = OnReadable(number, [] { return true; });
  bool heard = false;
  std::thread other;
  // After a sleep, so that the first one is being watched. What happens next is
  // that the second one can be read: nothing else wakes the loop.
  const auto later = loop_.RunAfter(milliseconds(5), [&] {
    Remove(first_source);
    ASSERT_EQ(dup2(second.read_end.get(), number), number);
    OnReadable(number, [&] {
      heard = second.Hear();
      loop_.Stop();
      return false;
    });
    other = std::thread([&, thread = gettid()] {
      WaitUntilAsleep(thread);
      second.Say();
    });
  });
  main_loop_.Run();
  other.join();
  EXPECT_TRUE(heard);
}

// A closed descriptor stays in an epoll set for as long as a copy of it is
// open.
TEST_F(GlibMainLoopTest, SleepsAlthoughACopyOfAClosedDescriptorIsReady) {
  Pipe pipe;
  const ScopedFd copy(dup(pipe.read_end.get()));
  const guint source = OnReadable(pipe.read_end.get(), [] { return true; });
  const auto later = loop_.RunAfter(milliseconds(5), [&] {
    Remove(source);
    pipe.read_end = ScopedFd();
    pipe.Say();
  });
  const auto last = loop_.RunAfter(milliseconds(200), [&] { loop_.Stop(); });
  main_loop_.Run();
  EXPECT_LT(iterations(), kFewIterations);
}

TEST_F(GlibMainLoopTest, StopInATaskEndsTheRun) {
  bool later = false;
  loop_.Post([&] {
    loop_.Stop();
    loop_.Post([&] { later = true; });
  });
  main_loop_.Run();
  EXPECT_FALSE(later);
  loop_.Post([&] { loop_.Stop(); });
  main_loop_.Run();
  EXPECT_TRUE(later);
}

TEST_F(GlibMainLoopTest, StopOnAnotherThreadEndsTheRun) {
  std::thread other;
  loop_.Post([&] { other = std::thread([&] { loop_.Stop(); }); });
  main_loop_.Run();
  other.join();
}

TEST_F(GlibMainLoopTest, StopInsideANestedRunEndsTheOuterOneAfterIt) {
  bool nested_over = false;
  bool task_ran = false;
  bool over = false;
  OnIdle([&] {
    loop_.Stop();
    loop_.Post([&] { task_ran = true; });
    OnTimeout(200, [&] {
      over = true;
      return false;
    });
    // Only GLib is served from here on. It sleeps until the timeout.
    RunNested([&] { return over; });
    EXPECT_LT(iterations(), kFewIterations);
    nested_over = true;
    return false;
  });
  main_loop_.Run();
  EXPECT_TRUE(nested_over);
  EXPECT_FALSE(task_ran);
}

TEST_F(GlibMainLoopTest, ServesTasksInALoopOfGlibsOwn) {
  GMainLoop* glib_loop = g_main_loop_new(context_, FALSE);
  int ran = 0;
  loop_.Post([&] {
    ++ran;
    // Nothing that the loop knows of is being stopped: forgotten.
    loop_.Stop();
    loop_.Post([&] {
      ++ran;
      g_main_loop_quit(glib_loop);
    });
  });
  g_main_loop_run(glib_loop);
  g_main_loop_unref(glib_loop);
  EXPECT_EQ(ran, 2);
}

TEST(GlibMainLoop, GivesTheContextItsOwnPollingBack) {
  Loop loop;
  GMainContext* const context = g_main_context_new();
  const GPollFunc former = g_main_context_get_poll_func(context);
  {
    const GlibMainLoop main_loop(loop, context);
    EXPECT_NE(g_main_context_get_poll_func(context), former);
  }
  EXPECT_EQ(g_main_context_get_poll_func(context), former);
  bool ran = false;
  loop.Post([&] { ran = true; });
  EXPECT_FALSE(g_main_context_iteration(context, FALSE));
  EXPECT_FALSE(ran);
  g_main_context_unref(context);
}

TEST(GlibMainLoop, RunsTheDefaultContextUnlessToldOtherwise) {
  Loop loop;
  GlibMainLoop main_loop(loop);
  g_idle_add(
      [](gpointer loop) -> gboolean {
        static_cast<Loop*>(loop)->Stop();
        return G_SOURCE_REMOVE;
      },
      &loop);
  main_loop.Run();
  EXPECT_FALSE(loop.IsCurrent());
}

TEST(GlibMainLoopDeathTest, AThreadHasOne) {
  Loop loop;
  const GlibMainLoop main_loop(loop);
  EXPECT_DEATH(GlibMainLoop another(loop),
               "this thread runs a GlibMainLoop already");
}

}  // namespace
}  // namespace rpc::loop
