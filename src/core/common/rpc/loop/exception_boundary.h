// The boundary to code of others that may be compiled with exceptions: services
// and tasks.
//
//   loop::EndOnException(
//       [&] { service.CallMethod(...); },
//       [&] { return method.full_name(); });
//
// Our own code is compiled without exceptions. One that passed through it would
// run no destructor there and leave calls, streams and registries half changed.
// So it must not get that far.
//
// Ownership: both functions are only borrowed.
//
// Sequence: any.
//
// Failure: an exception that leaves `enter` ends the process with a fatal
// record: who has thrown it and, if it is a std::exception, what it says.

#ifndef CORE_COMMON_RPC_LOOP_EXCEPTION_BOUNDARY_H_
#define CORE_COMMON_RPC_LOOP_EXCEPTION_BOUNDARY_H_

#include <string>

#include "absl/functional/function_ref.h"

namespace rpc::loop {

// `who` is only asked for the record. It begins a sentence.
void EndOnException(absl::FunctionRef<void()> enter,
                    absl::FunctionRef<std::string()> who);

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_EXCEPTION_BOUNDARY_H_
