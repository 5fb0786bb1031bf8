// Asks a server what it offers (rpc/reflection/server_reflection.proto).
//
// Ownership: the session is the caller's, and connected.
//
// Sequence: that of the session.
//
// Failure: the status of the call that has failed; UNIMPLEMENTED when the
// server has no reflection service, RESOURCE_EXHAUSTED when it has more to say
// than is taken, INTERNAL when it contradicts itself.

#ifndef TOOLS_RPCCTL_REFLECTION_H_
#define TOOLS_RPCCTL_REFLECTION_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "tools/rpcctl/remote_contract.h"

namespace rpcctl {

class Session;

// The longest files that are taken from a server: some hundred times what its
// services and their imports usually have.
inline constexpr uint64_t kMaxFilesBytes = 4 << 20;

// The full names of the services.
absl::StatusOr<std::vector<std::string>> FetchServices(Session& session);

// All services with their files.
absl::StatusOr<std::unique_ptr<RemoteContract>> FetchContract(Session& session);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_REFLECTION_H_
