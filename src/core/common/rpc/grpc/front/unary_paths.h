// The paths of calls that have turned out to name unary methods.
//
// A call of such a method has nothing to do on the front's sequence before its
// request is there. So it goes there only then, and wakes the sequence once
// instead of twice.
//
// Ownership: the front's, which its calls share.
//
// Sequence: any thread.
//
// Failure: none. A path that is not known is handed over at once, which is
// never wrong.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_UNARY_PATHS_H_
#define CORE_COMMON_RPC_GRPC_FRONT_UNARY_PATHS_H_

#include <mutex>
#include <string>

#include "absl/container/flat_hash_set.h"

namespace rpc::grpc {

class UnaryPaths {
 public:
  bool Has(const std::string& path) const {
    const std::lock_guard lock(mutex_);
    return paths_.contains(path);
  }

  // What the backend has found at `path`.
  void Note(const std::string& path, bool is_unary) {
    const std::lock_guard lock(mutex_);
    if (is_unary) {
      paths_.insert(path);
    } else {
      paths_.erase(path);
    }
  }

  // What is found from now on may be of another kind.
  void Clear() {
    const std::lock_guard lock(mutex_);
    paths_.clear();
  }

 private:
  mutable std::mutex mutex_;
  absl::flat_hash_set<std::string> paths_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_UNARY_PATHS_H_
