// The browser's own raw_ptr, under the path and the guard that the browser's
// base library gives it. On the include path only where the build has
// PartitionAlloc.

#ifndef BASE_MEMORY_RAW_PTR_H_
#define BASE_MEMORY_RAW_PTR_H_

#include "partition_alloc/pointers/raw_ptr.h"  // IWYU pragma: export

#endif  // BASE_MEMORY_RAW_PTR_H_
