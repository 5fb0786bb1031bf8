#include "examples/web_browser/desktop/display_loss.h"

#include <gdk/gdkx.h>
// Behind gdkx.h, whose macros it takes away.
#include "examples/web_browser/x11/xlib.h"

#include <utility>

#include "core/common/rpc/loop/glib_main_loop.h"

namespace web_browser {
namespace {

// Empty after the loss: Xlib reports it again for each further operation.
std::function<void(FoundBy)>& OnLoss() {
  static auto* const on_loss = new std::function<void(FoundBy)>();
  return *on_loss;
}

FoundBy Finder() {
  GSource* const source = g_main_current_source();
  return source == nullptr || rpc::loop::GlibMainLoop::IsOf(source)
             ? FoundBy::kProgram
             : FoundBy::kToolkit;
}

}  // namespace

void HandleDisplayLoss(std::function<void(FoundBy)> on_loss) {
  OnLoss() = std::move(on_loss);
  XSetIOErrorHandler([](Display*) {
    if (const auto handler = std::exchange(OnLoss(), nullptr))
      handler(Finder());
    return 0;
  });
  // Xlib's own ends the process.
  XSetIOErrorExitHandler(
      gdk_x11_display_get_xdisplay(gdk_display_get_default()),
      [](Display*, void*) {}, nullptr);
}

}  // namespace web_browser
