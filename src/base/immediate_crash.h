// Crashes the process at once, for states in which it must not go on.
//
//   if (message.body_case() == kImpossible)
//     base::ImmediateCrash();
//
// It writes nothing, runs no handler and no destructor, and allocates nothing,
// so it works whatever state the process is in. To crash with a message, use
// LOG(FATAL) of base/logging.h. It may be called on any sequence.

#ifndef BASE_IMMEDIATE_CRASH_H_
#define BASE_IMMEDIATE_CRASH_H_

namespace base {

// Inlined, so that a crash dump points at the caller.
[[noreturn, gnu::always_inline]] inline void ImmediateCrash() {
  __builtin_trap();
}

}  // namespace base

#endif  // BASE_IMMEDIATE_CRASH_H_
