// The browser's own raw_ptr, with the path and the include guard that it has in
// the browser's base library. On the include path only in builds with
// PartitionAlloc.

#ifndef BASE_MEMORY_RAW_PTR_H_
#define BASE_MEMORY_RAW_PTR_H_

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer) || \
    __has_feature(thread_sanitizer)
#define TORVANE_UNDER_SANITIZER
#endif
#endif
#if defined(TORVANE_UNDER_SANITIZER) || defined(__SANITIZE_ADDRESS__) || \
    defined(__SANITIZE_THREAD__)
#error \
    "PartitionAlloc cannot be combined with a sanitizer that is malloc itself"
#endif

#include "partition_alloc/pointers/raw_ptr.h"  // IWYU pragma: export

#endif  // BASE_MEMORY_RAW_PTR_H_
