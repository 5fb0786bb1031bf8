// The least that a gateway must do: gRPC's generic callback API in front, one
// thread that all calls go through, and a raw Unix socket to a second process
// that replies unread. It counts neither calls nor clients, keeps no limits and
// knows no streams, and answers in order: a gateway cannot do with less.
//
//   grpc_relay [thread|process|answer]
//
// To see what its parts cost, it does with less still: "thread" hands calls to
// the thread, which answers them itself; "process" has gRPC's thread wait for
// the second process; "answer" has it answer at once.
//
// Prints "ready at HOST:PORT PROCESS", where the process is the second one, and
// serves until it is killed.

#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/grpcpp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/support/process_pair.h"

namespace {

using bench::Fail;
using bench::FailWithErrno;

// What the service's frames take for such a call and its reply.
constexpr size_t kCallBytes = 13;
constexpr size_t kReplyBytes = 10;

// A BoolValue that is true.
constexpr std::string_view kReply("\x08\x01", 2);

class Call;

enum class Parts { kThreadAndProcess, kThread, kProcess, kNone };

Parts PartsOf(std::string_view word) {
  if (word == "thread")
    return Parts::kThread;
  if (word == "process")
    return Parts::kProcess;
  return word == "answer" ? Parts::kNone : Parts::kThreadAndProcess;
}

// The calls that gRPC has brought and the thread has yet to pass on.
class Inbox {
 public:
  Inbox() : wake_up_(eventfd(0, EFD_NONBLOCK)) {
    if (wake_up_ < 0)
      FailWithErrno("eventfd");
  }

  // On gRPC's threads.
  void Put(Call* call) {
    bool was_empty;
    {
      const std::lock_guard lock(mutex_);
      was_empty = calls_.empty();
      calls_.push_back(call);
    }
    if (was_empty)
      eventfd_write(wake_up_, 1);
  }

  // When wake_up() is readable.
  std::vector<Call*> TakeAll() {
    eventfd_t count;
    eventfd_read(wake_up_, &count);
    const std::lock_guard lock(mutex_);
    return std::exchange(calls_, {});
  }

  int wake_up() const { return wake_up_; }

 private:
  const int wake_up_;
  std::mutex mutex_;
  std::vector<Call*> calls_;
};

// The second process, for whoever waits for it.
class Process {
 public:
  explicit Process(int socket) : socket_(socket) {}

  void Ask() {
    const char call[kCallBytes] = {};
    char reply[kReplyBytes];
    const std::lock_guard lock(mutex_);
    if (send(socket_, call, sizeof(call), 0) < 0 ||
        recv(socket_, reply, sizeof(reply), 0) <= 0) {
      Fail("the second process is gone");
    }
  }

 private:
  const int socket_;
  std::mutex mutex_;
};

struct Shared {
  const Parts parts;
  Inbox& inbox;
  Process& process;
};

// Lives until gRPC is done with it.
class Call final : public grpc::ServerGenericBidiReactor {
 public:
  explicit Call(const Shared& shared) : shared_(shared) {
    StartRead(&request_);
  }

  void Reply() {
    const grpc::Slice reply(kReply.data(), kReply.size());
    reply_ = grpc::ByteBuffer(&reply, 1);
    StartWriteAndFinish(&reply_, {}, grpc::Status::OK);
  }

  void OnReadDone(bool ok) override {
    if (!ok)
      return;
    if (shared_.parts == Parts::kThread ||
        shared_.parts == Parts::kThreadAndProcess) {
      shared_.inbox.Put(this);
      return;
    }
    if (shared_.parts == Parts::kProcess)
      shared_.process.Ask();
    Reply();
  }
  void OnDone() override { delete this; }

 private:
  const Shared& shared_;
  grpc::ByteBuffer request_;
  grpc::ByteBuffer reply_;
};

class Service final : public grpc::CallbackGenericService {
 public:
  explicit Service(const Shared& shared) : shared_(shared) {}

  grpc::ServerGenericBidiReactor* CreateReactor(
      grpc::GenericCallbackServerContext*) override {
    return new Call(shared_);
  }

 private:
  const Shared& shared_;
};

// The second process.
[[noreturn]] void ServeCalls(int socket) {
  char calls[kCallBytes * 100];
  char replies[kReplyBytes * 100] = {};
  size_t received = 0;
  while (true) {
    const ssize_t size = recv(socket, calls, sizeof(calls), 0);
    if (size <= 0)
      _exit(0);
    received += static_cast<size_t>(size);
    const size_t count = received / kCallBytes;
    received %= kCallBytes;
    if (send(socket, replies, count * kReplyBytes, 0) < 0)
      _exit(1);
  }
}

// The thread that all calls go through.
class Relay {
 public:
  Relay(const Shared& shared, int socket)
      : shared_(shared), socket_(socket), epoll_(epoll_create1(0)) {
    Watch(shared_.inbox.wake_up());
    if (shared_.parts == Parts::kThreadAndProcess)
      Watch(socket_);
  }

  [[noreturn]] void Run() {
    while (true) {
      epoll_event events[2];
      const int count = epoll_wait(epoll_, events, 2, -1);
      for (int i = 0; i < count; ++i) {
        if (events[i].data.fd == socket_)
          TakeReplies();
        else
          PassOn();
      }
    }
  }

 private:
  void Watch(int descriptor) {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
      FailWithErrno("epoll_ctl");
  }

  void PassOn() {
    const std::vector<Call*> calls = shared_.inbox.TakeAll();
    if (shared_.parts == Parts::kThread) {
      for (Call* call : calls)
        call->Reply();
      return;
    }
    const std::vector<char> bytes(calls.size() * kCallBytes);
    waiting_.insert(waiting_.end(), calls.begin(), calls.end());
    if (send(socket_, bytes.data(), bytes.size(), 0) < 0)
      FailWithErrno("send");
  }

  void TakeReplies() {
    char replies[kReplyBytes * 100];
    const ssize_t size = recv(socket_, replies, sizeof(replies), 0);
    if (size <= 0)
      Fail("the second process is gone");
    received_ += static_cast<size_t>(size);
    for (; received_ >= kReplyBytes; received_ -= kReplyBytes) {
      waiting_.front()->Reply();
      waiting_.pop_front();
    }
  }

  const Shared& shared_;
  const int socket_;
  const int epoll_;
  size_t received_ = 0;
  std::deque<Call*> waiting_;
};

}  // namespace

int main(int argc, char** argv) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0)
    FailWithErrno("socketpair");
  const pid_t second = fork();
  if (second == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    ServeCalls(sockets[1]);
  }
  Inbox inbox;
  Process process(sockets[0]);
  const Shared shared = {PartsOf(argc > 1 ? argv[1] : ""), inbox, process};
  Service service(shared);
  grpc::ServerBuilder builder;
  int port = 0;
  builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(),
                           &port);
  builder.RegisterCallbackGenericService(&service);
  const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
  if (!server || port == 0)
    Fail("BuildAndStart");
  printf("ready at 127.0.0.1:%d %d\n", port, second);
  fflush(stdout);
  Relay(shared, sockets[0]).Run();
}
