// gRPC in its fastest usual form: completion queues, one thread in each
// process, an insecure channel over a Unix domain socket, optimised code. The
// only channel argument is the one that gives each channel its own connection.

#include <google/protobuf/wrappers.pb.h>
#include <grpcpp/grpcpp.h>

#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bench/support/measurement.h"
#include "bench/support/process_pair.h"
#include "peer.grpc.pb.h"

namespace {

using bench::Fail;
using bench::Measurement;
using bench::Mode;
using bench::ProcessPair;
using google::protobuf::BoolValue;

// How many calls the server accepts in advance, so that no client waits.
constexpr int kPostedRequests = 2 * bench::kCallsInFlight;

// The tag of an operation, which the completion queue returns.
class Event {
 public:
  virtual ~Event() = default;
  virtual void Happen(bool ok) = 0;
};

bool HandleNext(grpc::CompletionQueue& queue) {
  void* event = nullptr;
  bool ok = false;
  if (!queue.Next(&event, &ok))
    return false;
  static_cast<Event*>(event)->Happen(ok);
  return true;
}

BrowserId Window() {
  BrowserId id;
  id.set_value(bench::kWindow);
  return id;
}

struct ServerContext {
  peer::Windows::AsyncService service;
  std::unique_ptr<grpc::ServerCompletionQueue> queue;
};

// Serves one call of IsVisible after the other.
class UnaryRequest final : public Event {
 public:
  explicit UnaryRequest(ServerContext& server) : server_(server) { Request(); }

  void Happen(bool ok) override {
    if (!ok)
      return;
    if (std::exchange(replying_, !replying_))
      return Request();
    BoolValue response;
    response.set_value(request_.value() == bench::kWindow);
    writer_->Finish(response, grpc::Status::OK, this);
  }

 private:
  void Request() {
    context_ = std::make_unique<grpc::ServerContext>();
    writer_ = std::make_unique<grpc::ServerAsyncResponseWriter<BoolValue>>(
        context_.get());
    server_.service.RequestIsVisible(context_.get(), &request_, writer_.get(),
                                     server_.queue.get(), server_.queue.get(),
                                     this);
  }

  ServerContext& server_;
  BrowserId request_;
  bool replying_ = false;
  std::unique_ptr<grpc::ServerContext> context_;
  std::unique_ptr<grpc::ServerAsyncResponseWriter<BoolValue>> writer_;
};

// The stream to one watcher. When it is opened, it creates the object for the
// next watcher.
class EventStream final : public Event {
 public:
  EventStream(ServerContext& server, std::vector<EventStream*>& streams)
      : server_(server), streams_(streams), writer_(&context_) {
    server_.service.RequestWhenBrowserWindowClosed(
        &context_, &subscription_, &writer_, server_.queue.get(),
        server_.queue.get(), this);
  }

  void Happen(bool ok) override {
    if (!ok)
      return;
    if (!open_) {
      open_ = true;
      streams_.push_back(this);
      new EventStream(server_, streams_);  // Lives as long as the process.
      writer_.SendInitialMetadata(this);
      writing_ = true;
      return;
    }
    writing_ = false;
    if (waiting_) {
      waiting_ = false;
      Write(event_);
    }
  }

  void Write(const rpc::BrowserWindowClosed& event) {
    if (writing_) {
      waiting_ = true;
      event_ = event;
      return;
    }
    writing_ = true;
    writer_.Write(event, this);
  }

 private:
  ServerContext& server_;
  std::vector<EventStream*>& streams_;
  grpc::ServerContext context_;
  rpc::EventSubscription subscription_;
  grpc::ServerAsyncWriter<rpc::BrowserWindowClosed> writer_;
  bool open_ = false;
  bool writing_ = false;
  // `event_` waits for the write before it. One such place is enough, since the
  // client waits for each event before it requests the next.
  bool waiting_ = false;
  rpc::BrowserWindowClosed event_;
};

class PublishRequest final : public Event {
 public:
  PublishRequest(ServerContext& server,
                 const std::vector<EventStream*>& streams)
      : server_(server), streams_(streams) {
    Request();
  }

  void Happen(bool ok) override {
    if (!ok)
      return;
    if (std::exchange(replying_, !replying_))
      return Request();
    rpc::BrowserWindowClosed event;
    *event.mutable_browser_id() = request_;
    event.set_reason(rpc::WINDOW_CLOSE_REASON_CALL);
    event.set_title(bench::kTitle);
    for (EventStream* stream : streams_)
      stream->Write(event);
    BoolValue response;
    response.set_value(true);
    writer_->Finish(response, grpc::Status::OK, this);
  }

 private:
  void Request() {
    context_ = std::make_unique<grpc::ServerContext>();
    writer_ = std::make_unique<grpc::ServerAsyncResponseWriter<BoolValue>>(
        context_.get());
    server_.service.RequestClose(context_.get(), &request_, writer_.get(),
                                 server_.queue.get(), server_.queue.get(),
                                 this);
  }

  ServerContext& server_;
  const std::vector<EventStream*>& streams_;
  BrowserId request_;
  bool replying_ = false;
  std::unique_ptr<grpc::ServerContext> context_;
  std::unique_ptr<grpc::ServerAsyncResponseWriter<BoolValue>> writer_;
};

// The stream on which the server asks. Each question makes two events, one for
// its write and one for reading the answer; then comes the next question.
class QuestionStream final : public Event {
 public:
  QuestionStream(ServerContext& server, const ProcessPair& pair)
      : stream_(&context_), measurement_(pair) {
    server.service.RequestOnCloseWindow(&context_, &stream_, server.queue.get(),
                                        server.queue.get(), this);
  }

  bool done() const { return done_; }

  void Happen(bool ok) override {
    if (!ok)
      Fail("the client is gone");
    Ask();
  }

 private:
  struct Written final : Event {
    explicit Written(QuestionStream& stream) : stream(stream) {}
    void Happen(bool ok) override {
      if (!ok)
        Fail("a question was not written");
      stream.Over();
    }
    QuestionStream& stream;
  };
  struct Answered final : Event {
    explicit Answered(QuestionStream& stream) : stream(stream) {}
    void Happen(bool ok) override {
      if (!ok)
        Fail("a question was not answered");
      stream.Over();
    }
    QuestionStream& stream;
  };

  void Ask() {
    if (!measurement_.Next()) {
      measurement_.Print();
      done_ = true;
      return;
    }
    rpc::CloseWindow question;
    *question.mutable_browser_id() = Window();
    question.mutable_question()->set_reason(rpc::WINDOW_CLOSE_REASON_USER);
    missing_ = 2;
    stream_.Write(question, &written_);
    stream_.Read(&answer_, &answered_);
  }

  void Over() {
    if (--missing_ == 0)
      Ask();
  }

  grpc::ServerContext context_;
  grpc::ServerAsyncReaderWriter<rpc::CloseWindow, rpc::CloseWindow> stream_;
  Measurement measurement_;
  rpc::CloseWindow answer_;
  Written written_{*this};
  Answered answered_{*this};
  int missing_ = 0;
  bool done_ = false;
};

void Serve(ProcessPair& pair) {
  ServerContext server;
  grpc::ServerBuilder builder;
  builder.AddListeningPort("unix:" + pair.socket_path(),
                           grpc::InsecureServerCredentials());
  builder.RegisterService(&server.service);
  server.queue = builder.AddCompletionQueue();
  const std::unique_ptr<grpc::Server> running = builder.BuildAndStart();
  if (!running)
    Fail("BuildAndStart");

  std::deque<UnaryRequest> requests;
  for (int i = 0; i < kPostedRequests; ++i)
    requests.emplace_back(server);
  std::vector<EventStream*> streams;
  new EventStream(server, streams);
  PublishRequest publish(server, streams);
  QuestionStream questions(server, pair);
  pair.Signal();
  while (!questions.done() && HandleNext(*server.queue)) {
  }
  pair.End();
}

std::unique_ptr<peer::Windows::Stub> Connect(const ProcessPair& pair) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  return peer::Windows::NewStub(
      grpc::CreateCustomChannel("unix:" + pair.socket_path(),
                                grpc::InsecureChannelCredentials(), arguments));
}

// A unary call that runs a function when it is over.
class Call final : public Event {
 public:
  using OnDone = std::function<void()>;

  Call(peer::Windows::Stub& stub, grpc::CompletionQueue& queue, OnDone on_done)
      : stub_(stub), queue_(queue), on_done_(std::move(on_done)) {}

  void IsVisible() { Start(&peer::Windows::Stub::AsyncIsVisible); }
  void Close() { Start(&peer::Windows::Stub::AsyncClose); }

  void Happen(bool) override {
    if (!status_.ok() || !response_.value())
      Fail(status_.error_message());
    on_done_();
  }

 private:
  template <typename Method>
  void Start(Method method) {
    context_ = std::make_unique<grpc::ClientContext>();
    reader_ = (stub_.*method)(context_.get(), window_, &queue_);
    reader_->Finish(&response_, &status_, this);
  }

  peer::Windows::Stub& stub_;
  grpc::CompletionQueue& queue_;
  const OnDone on_done_;
  const BrowserId window_ = Window();
  std::unique_ptr<grpc::ClientContext> context_;
  std::unique_ptr<grpc::ClientAsyncResponseReader<BoolValue>> reader_;
  BoolValue response_;
  grpc::Status status_;
};

void MeasureUnary(ProcessPair& pair,
                  peer::Windows::Stub& stub,
                  grpc::CompletionQueue& queue,
                  int in_flight) {
  Measurement measurement(pair, in_flight);
  int completed = 0;
  int ended = 0;
  bool running = true;
  std::vector<std::unique_ptr<Call>> calls;
  for (int i = 0; i < in_flight; ++i) {
    calls.push_back(std::make_unique<Call>(stub, queue, [&, i] {
      if (running && ++completed % in_flight == 0)
        running = measurement.Next();
      if (running)
        calls[i]->IsVisible();
      else
        ++ended;
    }));
  }
  for (const auto& call : calls)
    call->IsVisible();
  while (ended < in_flight)
    HandleNext(queue);
  measurement.Print();
}

void AnswerQuestions(peer::Windows::Stub& stub, grpc::CompletionQueue& queue) {
  // Only one operation is in flight at a time, so all tags are null.
  grpc::ClientContext context;
  const auto stream = stub.AsyncOnCloseWindow(&context, &queue, nullptr);
  void* event = nullptr;
  bool ok = false;
  queue.Next(&event, &ok);
  rpc::CloseWindow question;
  rpc::CloseWindow answer;
  answer.mutable_response()->set_allowed(true);
  while (ok) {
    stream->Read(&question, nullptr);
    queue.Next(&event, &ok);
    *answer.mutable_browser_id() = question.browser_id();
    stream->Write(answer, nullptr);
    queue.Next(&event, &ok);
  }
}

class Watcher final : public Event {
 public:
  Watcher(peer::Windows::Stub& stub,
          grpc::CompletionQueue& queue,
          int& received)
      : received_(received) {
    rpc::EventSubscription subscription;
    *subscription.mutable_subscribe_to() = Window();
    reader_ = stub.AsyncWhenBrowserWindowClosed(&context_, subscription, &queue,
                                                this);
  }

  // Called when the call has been sent, when the server has accepted it, and
  // then for each event.
  void Happen(bool ok) override {
    if (!ok)
      Fail("a stream ended");
    ++received_;
    if (started_++ == 0)
      reader_->ReadInitialMetadata(this);
    else
      reader_->Read(&event_, this);
  }

 private:
  int& received_;
  int started_ = 0;
  grpc::ClientContext context_;
  std::unique_ptr<grpc::ClientAsyncReader<rpc::BrowserWindowClosed>> reader_;
  rpc::BrowserWindowClosed event_;
};

void MeasureFanout(ProcessPair& pair, grpc::CompletionQueue& queue) {
  int received = 0;
  std::vector<std::unique_ptr<peer::Windows::Stub>> stubs;
  std::vector<std::unique_ptr<Watcher>> watchers;
  for (int i = 0; i < bench::kConnections; ++i) {
    stubs.push_back(Connect(pair));
    for (int j = 0; j < bench::kStreamsPerConnection; ++j) {
      watchers.push_back(
          std::make_unique<Watcher>(*stubs.back(), queue, received));
    }
  }
  while (received < 2 * bench::kStreams)
    HandleNext(queue);

  Call call(*stubs.front(), queue, [&received] { ++received; });
  Measurement measurement(pair);
  while (measurement.Next()) {
    received = 0;
    call.Close();
    while (received < bench::kStreams + 1)
      HandleNext(queue);
  }
  measurement.Print();
}

void CallServer(ProcessPair& pair) {
  pair.Await();
  grpc::CompletionQueue queue;
  if (pair.mode() == Mode::kFanout) {
    MeasureFanout(pair, queue);
  } else {
    const auto stub = Connect(pair);
    if (pair.mode() == Mode::kQuestion)
      AnswerQuestions(*stub, queue);
    else
      MeasureUnary(pair, *stub, queue,
                   pair.mode() == Mode::kUnary ? 1 : bench::kCallsInFlight);
  }
  pair.End();
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunPair(argc, argv, {.serve = Serve, .call = CallServer});
}
