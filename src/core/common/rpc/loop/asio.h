// The only header that includes Asio.
//
// Stand-alone Asio, built without exceptions and run-time type information,
// asks its user for a throw_exception. All of our own code uses the error_code
// overloads, so an error that arrives there is one that nobody foresaw, such as
// a reactor that cannot be created: it ends the process.

#ifndef CORE_COMMON_RPC_LOOP_ASIO_H_
#define CORE_COMMON_RPC_LOOP_ASIO_H_

#include <asio/detail/throw_exception.hpp>

#include "absl/log/absl_log.h"

namespace asio::detail {

template <typename Exception>
void throw_exception(const Exception& exception) {
  ABSL_LOG(FATAL) << "Asio failed: " << exception.what();
}

}  // namespace asio::detail

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#endif  // CORE_COMMON_RPC_LOOP_ASIO_H_
