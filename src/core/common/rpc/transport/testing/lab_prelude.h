// The precompiled header of the transport's tests (cmake/Testing.cmake): what
// every test's has, and what lab.h includes. A test still includes what it uses
// itself.

#ifndef CORE_COMMON_RPC_TRANSPORT_TESTING_LAB_PRELUDE_H_
#define CORE_COMMON_RPC_TRANSPORT_TESTING_LAB_PRELUDE_H_

#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/testing/test_prelude.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/wire/frame_codec.h"
#include "lab.pb.h"
#include "lab.rpc.h"
#include "rpc/transport/frame.pb.h"

#endif  // CORE_COMMON_RPC_TRANSPORT_TESTING_LAB_PRELUDE_H_
