#include "examples/window_host/windows/window_system.h"

#include "absl/strings/str_cat.h"

namespace window_host {

absl::Status NoWindow(int64_t id) {
  return absl::NotFoundError(absl::StrCat("No window ", id, "."));
}

}  // namespace window_host
