// Cap'n Proto's own RPC as its manual shows it: a two-party connection over a
// Unix domain socket, one event loop in each process.

#include <capnp/message.h>
#include <capnp/rpc-twoparty.h>
#include <kj/async-io.h>

#include <optional>
#include <utility>
#include <vector>

#include "bench/support/measurement.h"
#include "bench/support/process_pair.h"
#include "peer.capnp.h"

namespace {

using bench::Fail;
using bench::Measurement;
using bench::Mode;
using bench::ProcessPair;

// As rpc.WINDOW_CLOSE_REASON_USER and _CALL.
constexpr uint16_t kUser = 1;
constexpr uint16_t kCall = 2;

class WindowsServer final : public peer::Windows::Server,
                            public kj::TaskSet::ErrorHandler {
 public:
  explicit WindowsServer(ProcessPair& pair) : pair_(pair) {}

  kj::Promise<void> isVisible(IsVisibleContext context) override {
    const int64_t window = context.getParams().getBrowserId().getValue();
    context.getResults().setVisible(window == bench::kWindow);
    return kj::READY_NOW;
  }

  kj::Promise<void> close(CloseContext context) override {
    for (peer::Watcher::Client& watcher : watchers_) {
      auto event = watcher.closedRequest();
      event.initBrowserId().setValue(bench::kWindow);
      event.setReason(kCall);
      event.setTitle(bench::kTitle);
      events_.add(event.send().ignoreResult());
    }
    context.getResults().setClosed(true);
    return kj::READY_NOW;
  }

  kj::Promise<void> watch(WatchContext context) override {
    watchers_.push_back(context.getParams().getWatcher());
    return kj::READY_NOW;
  }

  kj::Promise<void> answer(AnswerContext context) override {
    measurement_.emplace(pair_);
    return Ask(context.getParams().getAnswerer());
  }

  void taskFailed(kj::Exception&& exception) override {
    Fail(exception.getDescription().cStr());
  }

 private:
  kj::Promise<void> Ask(peer::Answerer::Client answerer) {
    if (!measurement_->Next()) {
      measurement_->Print();
      pair_.End();
    }
    auto question = answerer.closeWindowRequest();
    question.initBrowserId().setValue(bench::kWindow);
    question.setReason(kUser);
    return question.send().then(
        [this, answerer = kj::mv(answerer)](auto&&) mutable {
          return Ask(kj::mv(answerer));
        });
  }

  ProcessPair& pair_;
  std::vector<peer::Watcher::Client> watchers_;
  kj::TaskSet events_{*this};
  std::optional<Measurement> measurement_;
};

void Serve(ProcessPair& pair) {
  kj::AsyncIoContext io = kj::setupAsyncIo();
  capnp::TwoPartyServer server(kj::heap<WindowsServer>(pair));
  auto address = io.provider->getNetwork()
                     .parseAddress("unix:" + pair.socket_path())
                     .wait(io.waitScope);
  auto listener = address->listen();
  pair.Signal();
  server.listen(*listener).wait(io.waitScope);
}

class Connection {
 public:
  Connection(kj::AsyncIoContext& io, const ProcessPair& pair)
      : stream_(io.provider->getNetwork()
                    .parseAddress("unix:" + pair.socket_path())
                    .wait(io.waitScope)
                    ->connect()
                    .wait(io.waitScope)),
        client_(*stream_) {}

  peer::Windows::Client Windows() {
    return client_.bootstrap().castAs<peer::Windows>();
  }

 private:
  kj::Own<kj::AsyncIoStream> stream_;
  capnp::TwoPartyClient client_;
};

auto IsVisible(peer::Windows::Client& windows) {
  auto request = windows.isVisibleRequest();
  request.initBrowserId().setValue(bench::kWindow);
  return request.send();
}

[[noreturn]] void MeasureUnary(ProcessPair& pair,
                               kj::AsyncIoContext& io,
                               peer::Windows::Client windows) {
  Measurement measurement(pair);
  while (measurement.Next()) {
    if (!IsVisible(windows).wait(io.waitScope).getVisible())
      Fail("isVisible");
  }
  measurement.Print();
  pair.End();
}

class Pipeline final : public kj::TaskSet::ErrorHandler {
 public:
  Pipeline(const ProcessPair& pair, peer::Windows::Client windows)
      : measurement_(pair, bench::kCallsInFlight),
        windows_(kj::mv(windows)),
        calls_(*this) {
    for (int i = 0; i < bench::kCallsInFlight; ++i)
      Start();
  }

  // Resolves when all calls are over.
  kj::Promise<void> Run() { return calls_.onEmpty(); }

  void Print() { measurement_.Print(); }

  void taskFailed(kj::Exception&& exception) override {
    Fail(exception.getDescription().cStr());
  }

 private:
  void Start() {
    calls_.add(IsVisible(windows_).then([this](auto&& response) {
      if (!response.getVisible())
        Fail("isVisible");
      if (running_ && ++completed_ % bench::kCallsInFlight == 0)
        running_ = measurement_.Next();
      if (running_)
        Start();
    }));
  }

  Measurement measurement_;
  peer::Windows::Client windows_;
  int completed_ = 0;
  bool running_ = true;
  kj::TaskSet calls_;
};

[[noreturn]] void MeasurePipelined(ProcessPair& pair,
                                   kj::AsyncIoContext& io,
                                   peer::Windows::Client windows) {
  Pipeline pipeline(pair, windows);
  pipeline.Run().wait(io.waitScope);
  pipeline.Print();
  pair.End();
}

class AnswererServer final : public peer::Answerer::Server {
  kj::Promise<void> closeWindow(CloseWindowContext context) override {
    context.getResults().setAllowed(true);
    return kj::READY_NOW;
  }
};

void AnswerQuestions(kj::AsyncIoContext& io, peer::Windows::Client windows) {
  auto request = windows.answerRequest();
  request.initBrowserId().setValue(bench::kWindow);
  request.setAnswerer(kj::heap<AnswererServer>());
  request.send().wait(io.waitScope);
}

// Fulfils a promise when the last event that was expected has come.
class WatcherServer final : public peer::Watcher::Server {
 public:
  WatcherServer(int& missing, kj::Own<kj::PromiseFulfiller<void>>& done)
      : missing_(missing), done_(done) {}

 private:
  kj::Promise<void> closed(ClosedContext) override {
    if (--missing_ == 0)
      done_->fulfill();
    return kj::READY_NOW;
  }

  int& missing_;
  kj::Own<kj::PromiseFulfiller<void>>& done_;
};

[[noreturn]] void MeasureFanout(ProcessPair& pair, kj::AsyncIoContext& io) {
  int missing = 0;
  kj::Own<kj::PromiseFulfiller<void>> done;
  std::vector<kj::Own<Connection>> connections;
  std::vector<peer::Windows::Client> windows;
  for (int i = 0; i < bench::kConnections; ++i) {
    connections.push_back(kj::heap<Connection>(io, pair));
    windows.push_back(connections.back()->Windows());
    for (int j = 0; j < bench::kStreamsPerConnection; ++j) {
      auto request = windows.back().watchRequest();
      request.initBrowserId().setValue(bench::kWindow);
      request.setWatcher(kj::heap<WatcherServer>(missing, done));
      request.send().wait(io.waitScope);
    }
  }
  Measurement measurement(pair);
  while (measurement.Next()) {
    auto all = kj::newPromiseAndFulfiller<void>();
    done = kj::mv(all.fulfiller);
    missing = bench::kStreams;
    auto request = windows.front().closeRequest();
    request.initBrowserId().setValue(bench::kWindow);
    request.send().wait(io.waitScope);
    all.promise.wait(io.waitScope);
  }
  measurement.Print();
  pair.End();
}

void CallServer(ProcessPair& pair) {
  pair.Await();
  kj::AsyncIoContext io = kj::setupAsyncIo();
  if (pair.mode() == Mode::kFanout)
    MeasureFanout(pair, io);
  Connection connection(io, pair);
  peer::Windows::Client windows = connection.Windows();
  if (pair.mode() == Mode::kUnary)
    MeasureUnary(pair, io, windows);
  if (pair.mode() == Mode::kPipelined)
    MeasurePipelined(pair, io, windows);
  AnswerQuestions(io, windows);
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunPair(argc, argv, {.serve = Serve, .call = CallServer});
}
