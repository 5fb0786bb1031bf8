#include "tools/rpcctl/stream_run.h"

#include <csignal>
#include <initializer_list>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/signal_watch.h"
#include "tools/rpcctl/reflection.h"

namespace rpcctl {

StreamRun::StreamRun(Session& session) : session_(session) {}

ExitCode StreamRun::Run(const AwaitReply& await_reply,
                        const std::function<void()>& end) {
  if (ExitCode fault = await_reply(session_); fault != kSuccess)
    return fault;
  // The server may have ended the stream before it replied; handles that now.
  session_.loop().RunReady();
  if (ended_)
    return OutcomeOf(*ended_);
  // Until here a signal ends the process. Later the first one ends the stream,
  // and a second one the process, in case the server does not react.
  std::optional<rpc::loop::SignalWatch> signals;
  signals.emplace(session_.loop(), std::initializer_list<int>{SIGINT, SIGTERM},
                  [&](int) {
                    signals.reset();
                    end();
                  });
  Say("subscribed");
  ABSL_CHECK(session_.loop().RunUntil([this] { return ended_.has_value(); }))
      << "the stream is not over, but nothing is left to wait for";
  return OutcomeOf(*ended_);
}

ExitCode StreamRun::OutcomeOf(const absl::Status& end) {
  return end.ok() ? kSuccess : FailOn(session_.client(), end);
}

std::function<void(const absl::Status&)> StreamRun::on_end() {
  return [this](const absl::Status& status) { ended_ = status; };
}

ExitCode AwaitReflection(Session& session) {
  const auto services = FetchServices(session);
  return services.ok() ? kSuccess : FailOn(session.client(), services.status());
}

}  // namespace rpcctl
