// What gRPC has to say becomes records of LOG.
//
// By itself the library prints to standard error, past the log and whoever
// limits it, and waits where nobody reads that. It does so when a client does
// something wrong, so clients decide how often.
//
// Sequence: records come on gRPC's threads.
//
// Failure: none.

#ifndef TOOLS_RPC_GATEWAY_GRPC_LOG_H_
#define TOOLS_RPC_GATEWAY_GRPC_LOG_H_

namespace rpc_gateway {

// Works from now on, for the whole process.
void RecordGrpcLog();

}  // namespace rpc_gateway

#endif  // TOOLS_RPC_GATEWAY_GRPC_LOG_H_
