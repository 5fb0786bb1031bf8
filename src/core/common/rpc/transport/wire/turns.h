// The connections of a loop that still have frames to handle when their slice
// of time is over.
//
// One of them has its turn, and then the loop everybody else: who has just sent
// a frame waits for one slice, however many others have thousands. Were each of
// them posted by itself, he would wait for a slice of each.
//
// Ownership: the io_context's, one for each; asio::use_service() finds it.
//
// Sequence: the loop's.
//
// Failure: none. What still waits when the loop is destroyed is destroyed
// without being run.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_TURNS_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_TURNS_H_

#include <deque>
#include <functional>

#include "core/common/rpc/loop/asio.h"

namespace rpc::transport {

class Turns final : public asio::execution_context::service {
 public:
  // What asio tells its services apart by.
  static asio::execution_context::id id;

  explicit Turns(asio::execution_context& context);
  ~Turns() override;

  // Runs it when all that wait now have had their turns.
  void Add(std::function<void()> turn);

 private:
  void shutdown() override;
  void PostNext();

  std::deque<std::function<void()>> waiting_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_TURNS_H_
