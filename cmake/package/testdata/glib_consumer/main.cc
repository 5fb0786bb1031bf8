// Runs both loops: a callback of GLib's posts a task, which stops them.

#include <glib.h>

#include <cstdio>

#include "core/common/rpc/loop/glib_main_loop.h"
#include "core/common/rpc/loop/loop.h"

namespace {

gboolean PostStop(gpointer data) {
  auto* loop = static_cast<rpc::loop::Loop*>(data);
  loop->Post([loop] {
    std::printf("task of the loop\n");
    loop->Stop();
  });
  std::printf("callback of GLib\n");
  return G_SOURCE_REMOVE;
}

}  // namespace

int main() {
  rpc::loop::Loop loop;
  rpc::loop::GlibMainLoop main_loop(loop);
  g_idle_add(PostStop, &loop);
  main_loop.Run();
}
