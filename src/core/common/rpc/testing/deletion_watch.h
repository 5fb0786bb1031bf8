// Sees chosen heap objects being deleted: in which order, and what holds at
// that moment.
//
//   DeletionWatch watch({first, second}, [&] { sizes.push_back(map.size()); });
//   ...
//   EXPECT_THAT(watch.deleted(), ElementsAre(first, second));
//
// There is one at a time. Needs torvane_allocation_counter.

#ifndef CORE_COMMON_RPC_TESTING_DELETION_WATCH_H_
#define CORE_COMMON_RPC_TESTING_DELETION_WATCH_H_

#include <functional>
#include <set>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/allocation_counter.h"

namespace torvane {

class DeletionWatch {
 public:
  // `on_delete` runs when the destructor of one of the objects has run and its
  // memory is about to go.
  explicit DeletionWatch(
      std::set<const void*> objects,
      std::function<void(const void*)> on_delete = [](const void*) {}) {
    watched_ = {std::move(objects), {}, std::move(on_delete)};
    SetOnFree(&Note);
  }
  DeletionWatch(const DeletionWatch&) = delete;
  DeletionWatch& operator=(const DeletionWatch&) = delete;
  ~DeletionWatch() {
    SetOnFree(nullptr);
    watched_ = {};
  }

  const std::vector<const void*>& deleted() const { return watched_.deleted; }

 private:
  struct Watched {
    std::set<const void*> objects;
    std::vector<const void*> deleted;
    std::function<void(const void*)> on_delete;
  };

  static void Note(const void* block) {
    // Forgotten with that: its address may be used again.
    if (watched_.objects.erase(block) != 0) {
      watched_.deleted.push_back(block);
      watched_.on_delete(block);
    }
  }

  static inline Watched watched_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_DELETION_WATCH_H_
