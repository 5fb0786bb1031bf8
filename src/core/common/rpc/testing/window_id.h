// The name of a browser window, from its number.

#ifndef CORE_COMMON_RPC_TESTING_WINDOW_ID_H_
#define CORE_COMMON_RPC_TESTING_WINDOW_ID_H_

#include <cstdint>

#include "browser_id.pb.h"

namespace torvane {

inline BrowserId WindowId(int64_t value) {
  BrowserId id;
  id.set_value(value);
  return id;
}

}  // namespace torvane

#endif  // CORE_COMMON_RPC_TESTING_WINDOW_ID_H_
