#include "core/common/rpc/stream/service.h"

namespace torvane {

Service::~Service() = default;

}  // namespace torvane
