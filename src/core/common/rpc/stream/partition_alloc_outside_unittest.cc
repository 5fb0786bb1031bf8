// What a project that takes ours in gets for its raw_ptr: the same as our
// libraries have. Compiled as such a project does, with nothing but what the
// stream library hands on.

#include <gtest/gtest.h>

#include <type_traits>

#include "base/memory/raw_ptr.h"
#include "core/common/rpc/stream/service.h"
#include "partition_alloc/pointers/raw_ptr_backup_ref_impl.h"

namespace {

TEST(ProjectThatTakesOursIn, HasTheCheckedPointerOfOurLibraries) {
  EXPECT_TRUE((std::is_same_v<raw_ptr<torvane::Service>::Impl,
                              base::internal::RawPtrBackupRefImpl<>>));
}

}  // namespace
