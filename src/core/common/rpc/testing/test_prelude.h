// What nearly every test includes and what takes longest to compile: the
// precompiled header that tests are built on (cmake/Testing.cmake). A test
// still includes what it uses itself.

#ifndef CORE_COMMON_RPC_TESTING_TEST_PRELUDE_H_
#define CORE_COMMON_RPC_TESTING_TEST_PRELUDE_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/service.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "absl/container/flat_hash_set.h"
#include "absl/log/absl_check.h"
#include "absl/log/absl_log.h"
#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"

#endif  // CORE_COMMON_RPC_TESTING_TEST_PRELUDE_H_
