// The service that tells clients which windows there are, and opens more.
//
//   const std::unique_ptr<rpc::directory::WindowDirectoryRpc> directory =
//       window_host::MakeDirectoryService(windows, {.max_windows = 50});
//   server.AddService(directory.get());
//
// It implements the unary methods of rpc/directory/window_directory.proto. The
// events about windows that open are published by Browser, which observes them.
//
// Ownership: the windows are the caller's and must outlive the service, which
// must outlive the last task of the sequence.
//
// Sequence: that of the windows, which must also be that of the server.
//
// Failure: calls fail with the status of the windows, with INVALID_ARGUMENT for
// a text that is no absolute URL or is beyond kMaxUrlBytes, and with
// RESOURCE_EXHAUSTED where max_windows are open. The controller must be a
// CallContext.

#ifndef EXAMPLES_WINDOW_HOST_SERVICE_DIRECTORY_SERVICE_H_
#define EXAMPLES_WINDOW_HOST_SERVICE_DIRECTORY_SERVICE_H_

#include <cstddef>
#include <memory>

#include "examples/window_host/windows/window_system.h"
#include "rpc/directory/window_directory.rpc.h"

namespace window_host {

// The longest URL that a window is opened with, in bytes of UTF-8. Short enough
// for a title, which it is on a desktop without pages.
inline constexpr size_t kMaxUrlBytes = 2048;

// A reply has as many windows as fit in so many bytes, and at least one, which
// even with the longest title fits in the shortest frame that a client may
// choose to take.
inline constexpr size_t kMaxListBytes = 4096;

struct DirectoryLimits {
  // How many windows may be open, whoever has opened them, when a client opens
  // another one. It may well have gone when its window is still there, so this
  // does not count for each client.
  size_t max_windows = 1000;
};

std::unique_ptr<rpc::directory::WindowDirectoryRpc> MakeDirectoryService(
    WindowSystem& windows,
    const DirectoryLimits& limits);

// As clients are told of a window.
rpc::directory::WindowInfo ToInfo(const WindowView& window);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_SERVICE_DIRECTORY_SERVICE_H_
