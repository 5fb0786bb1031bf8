// What must not compile, neither with the stand-in nor with the browser's own
// raw_ptr.
//
// Never linked: each test compiles this source with one statement as REFUSED
// and passes if that fails. Without a statement it must compile.

#include "base/memory/raw_ptr.h"

struct Target {};

void Refuse([[maybe_unused]] raw_ptr<Target> p,
            [[maybe_unused]] raw_ptr<Target> other,
            [[maybe_unused]] Target* plain) {
#ifdef REFUSED
  REFUSED;
#endif
}
