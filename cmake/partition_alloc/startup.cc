// Turns the protection on. It is off until malloc's partition is configured,
// which must happen once, early and on one thread.
//
// This runs before all C++ initialisers of the program, so that every object
// that the program makes is protected, and main() need not do anything.

#include "partition_alloc/shim/allocator_shim_default_dispatch_to_partition_alloc.h"

namespace {

// 101 is the first priority that is not reserved for the implementation.
[[gnu::constructor(101)]] void ProtectMalloc() {
  // The only configuring function that is kept stable for builds outside of the
  // browser.
  allocator_shim::ConfigurePartitionsForTesting();
}

}  // namespace
