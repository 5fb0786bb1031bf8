#include "examples/web_browser/x11/fence.h"

#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

// Of each coordinate, which X keeps in 16 bits with a sign.
constexpr int kBitsOfDigit = 15;
constexpr uint64_t kMostOfDigit = (uint64_t{1} << kBitsOfDigit) - 1;
// Places repeat themselves after this many fences.
constexpr uint64_t kPlaces = uint64_t{1} << (2 * kBitsOfDigit);

}  // namespace

Fence::Fence(Connection* connection)
    : connection_(connection), window_(connection, StructureNotifyMask) {}

uint64_t Fence::Send() {
  ++sent_;
  XMoveWindow(connection_, window_.id(), static_cast<int>(sent_ & kMostOfDigit),
              static_cast<int>(sent_ >> kBitsOfDigit & kMostOfDigit));
  XFlush(connection_);
  return sent_;
}

bool Fence::OnEvent(const Event& event) {
  if (event.type != ConfigureNotify ||
      event.xconfigure.window != window_.id() || event.xconfigure.send_event) {
    return false;
  }
  const uint64_t place = static_cast<uint64_t>(event.xconfigure.y)
                             << kBitsOfDigit |
                         static_cast<uint64_t>(event.xconfigure.x);
  const uint64_t further = (place - passed_) % kPlaces;
  // One that has not been sent, or is from before: somebody else has moved the
  // window.
  if (further == 0 || passed_ + further > sent_) {
    return false;
  }
  passed_ += further;
  return true;
}

}  // namespace web_browser::x11
