// Ends the process on the spot, for states that must not be survived.
//
//   if (message.body_case() == kImpossible)
//     base::ImmediateCrash();
//
// It writes nothing, runs no handler and no destructor, and allocates nothing,
// so it works whatever state the process is in. Whoever wants a text writes a
// LOG(FATAL) record instead, see base/logging.h. It may be called on any
// sequence.

#ifndef BASE_IMMEDIATE_CRASH_H_
#define BASE_IMMEDIATE_CRASH_H_

namespace base {

// Inlined, so that a crash dump points at the caller.
[[noreturn, gnu::always_inline]] inline void ImmediateCrash() {
  __builtin_trap();
}

}  // namespace base

#endif  // BASE_IMMEDIATE_CRASH_H_
