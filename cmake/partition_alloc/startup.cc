// Turns the protection on. malloc's partition has it off until it is configured
// once, early and on one thread.
//
// Run ahead of all C++ initialisers of the program, so that every object that
// the program itself makes is protected, and main() need not know.

#include "partition_alloc/shim/allocator_shim_default_dispatch_to_partition_alloc.h"

namespace {

// The first priority that is not the implementation's own.
[[gnu::constructor(101)]] void ProtectMalloc() {
  // Of the configuring functions, this is the one that is kept stable for
  // builds outside of the browser.
  allocator_shim::ConfigurePartitionsForTesting();
}

}  // namespace
