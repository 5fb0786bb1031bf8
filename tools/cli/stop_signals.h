// Ends a program in good order when somebody wants it to end.
//
//   cli::StopSignals signals(loop, [&] { server.Stop(); });
//
// Such a wish is SIGINT or SIGQUIT from the keyboard, SIGTERM, or SIGHUP when
// the terminal goes. SIGHUP is left alone where it was ignored at the start of
// the program, as nohup has it.
//
// The first signal calls the handler. A second one, of whatever kind, ends the
// process at once, in case good order takes too long.
//
// Ownership: the program's; the loop must outlive it. It keeps the loop running
// until the first signal or its destruction.
//
// Sequence: that of the loop. The handler runs there, at most once, and may
// destroy the object.
//
// Failure: a signal that cannot be watched ends the process.

#ifndef TOOLS_CLI_STOP_SIGNALS_H_
#define TOOLS_CLI_STOP_SIGNALS_H_

#include <functional>
#include <optional>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/signal_watch.h"

namespace cli {

class StopSignals {
 public:
  using Handler = std::function<void()>;

  StopSignals(rpc::loop::Loop& loop, Handler on_stop);
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  void OnSignal();

  Handler on_stop_;
  // Empty after the first signal: then signals do again what they do by
  // default.
  std::optional<rpc::loop::SignalWatch> watch_;
};

}  // namespace cli

#endif  // TOOLS_CLI_STOP_SIGNALS_H_
