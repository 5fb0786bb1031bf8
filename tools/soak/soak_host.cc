#include "tools/soak/soak_host.h"

#include <malloc.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/signal_watch.h"
#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/soak/client_process.h"
#include "tools/soak/deaths.h"
#include "tools/soak/soak_client.h"
#include "tools/soak/soak_service.h"
#include "tools/soak/tally.h"

namespace soak {
namespace {

using rpc::ShowContextMenu;
using rpc::serving::QuestionOutcome;

// Questions that are pending for one client at a time. It is more than a client
// keeps for later, so there is always one that the client answers at once.
constexpr size_t kQuestionsPerClient = 32;

// The host acts whenever questions settle. On average it kills one client for
// each kSettledPerKill questions that have settled, and so on.
constexpr int kSettledPerKill = 500;
constexpr int kSettledPerStop = 100;
constexpr int kSettledPerContinue = 100;
constexpr int kSettledPerEvent = 4;

// On average one of this many clients is slow, and one of this many questions
// is cancelled after HostOptions::patience.
constexpr int kClientsPerSlowOne = 4;
constexpr int kQuestionsPerImpatientOne = 4;

uint64_t ResidentBytes() {
  // Returns to the system the free memory that malloc keeps.
  malloc_trim(0);
  uint64_t total_pages = 0;
  uint64_t resident_pages = 0;
  std::ifstream("/proc/self/statm") >> total_pages >> resident_pages;
  return resident_pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// Without the one that looks.
size_t OpenDescriptors() {
  using Entries = std::filesystem::directory_iterator;
  return static_cast<size_t>(
             std::distance(Entries("/proc/self/fd"), Entries())) -
         1;
}

// A folder that the destructor removes.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    path_ = std::filesystem::temp_directory_path() / "soak.XXXXXX";
    ABSL_PCHECK(mkdtemp(path_.data()) != nullptr) << path_;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

SharedTally MakeTally() {
  absl::StatusOr<SharedTally> tally = SharedTally::Create();
  ABSL_CHECK(tally.ok()) << tally.status();
  return *std::move(tally);
}

class Host {
 public:
  explicit Host(const HostOptions& options);
  Outcome Run();

 private:
  struct Client {
    std::unique_ptr<ClientProcess> process;
    // True once it has subscribed to all its windows.
    bool ready = false;
    size_t pending = 0;
  };
  // By number. Numbers are never reused.
  using Clients = std::map<int64_t, Client>;

  // The client that was asked, and what its answer must repeat.
  struct Question {
    int64_t client;
    int32_t x;
    int32_t y;
  };

  bool OneIn(int chances) {
    return std::uniform_int_distribution(1, chances)(random_) == 1;
  }
  bool IsOver() const {
    return time_is_up_ || (options_.questions && asked_all());
  }
  bool asked_all() const { return outcome_.asked >= *options_.questions; }

  void StartMissingClients();
  void StartClient();
  void OnReady(int64_t window);
  // Ends the process if a client has ended by itself.
  void CheckClients();
  // A random client for which `fits` is true; null when there is none.
  template <typename Predicate>
  Client* AnyClient(Predicate fits);
  size_t RunningClients() const;

  void ActSoon();
  void Act();
  void MaybeDisturbClients();
  void Kill();
  void Stop();
  void Continue();
  void PublishEvent();

  void AskAll();
  bool Ask(int64_t number);
  void OnAnswer(uint64_t id, const ShowContextMenu& answer);
  void RecordEnd(uint64_t id, uint64_t& counter);
  // One question of the client has ended.
  void ForgetQuestionOf(int64_t number);
  void OnOutcome(uint64_t id,
                 QuestionOutcome how,
                 const ShowContextMenu& answer);

  void KillAllClients();
  Outcome Summary();

  const HostOptions options_;
  std::mt19937_64 random_;
  const TemporaryFolder folder_;
  const std::string socket_ = folder_.path() + "/socket";
  const SharedTally tally_ = MakeTally();
  rpc::loop::Loop loop_;
  SoakService service_;
  rpc::transport::Server server_;

  Clients clients_;
  int64_t next_number_ = 1;
  // Questions that have not ended, by id.
  std::unordered_map<uint64_t, Question> pending_;
  uint64_t next_question_ = 1;
  // Questions that have ended since the last Act().
  int settled_ = 0;
  bool act_scheduled_ = false;
  bool time_is_up_ = false;
  Outcome outcome_;
  Deaths deaths_{&outcome_.settling};
};

Host::Host(const HostOptions& options)
    : options_(options),
      random_(options.seed),
      service_([this](const BrowserId& id) { OnReady(id.value()); }),
      server_(loop_) {
  ABSL_CHECK(options.questions || options.duration) << "it would never end";
  ABSL_CHECK_GT(options.clients, 1u) << "one has to go on when one is stopped";
  server_.AddService(&service_);
}

Outcome Host::Run() {
  const absl::Status listening = server_.Listen(socket_);
  ABSL_CHECK(listening.ok()) << listening;
  {
    const rpc::loop::SignalWatch client_has_changed(
        loop_, {SIGCHLD}, [this](int) { CheckClients(); });
    std::unique_ptr<rpc::loop::Timer> end;
    if (options_.duration)
      end = loop_.RunAfter(*options_.duration, [this] { time_is_up_ = true; });
    // The watch has opened a pipe, which the process keeps.
    outcome_.memory_at_start = ResidentBytes();
    outcome_.descriptors_at_start = OpenDescriptors();
    StartMissingClients();
    ABSL_CHECK(loop_.RunUntil([this] { return IsOver(); }));
  }
  KillAllClients();
  return Summary();
}

// Starting a process takes a while, which must not count against a client that
// has died. Once the soak is over nobody comes any more.
void Host::StartMissingClients() {
  while (!IsOver() && deaths_.all_settled() &&
         clients_.size() < options_.clients)
    StartClient();
}

void Host::StartClient() {
  const int64_t number = next_number_++;
  const bool is_slow = OneIn(kClientsPerSlowOne);
  outcome_.clients_slow += is_slow ? 1 : 0;
  ++outcome_.clients_started;
  const std::vector<std::string> words = {
      options_.program,
      "--client",
      absl::StrCat("--socket=", socket_),
      absl::StrCat("--number=", number),
      absl::StrCat("--seed=", options_.seed + static_cast<uint64_t>(number)),
      absl::StrCat("--tally=", tally_.descriptor()),
      absl::StrCat("--manner=", is_slow ? "slow" : "lively")};
  const int tally = tally_.descriptor();
  clients_[number].process = std::make_unique<ClientProcess>(
      words, std::vector<cli::InheritedDescriptor>{{tally, tally}});
}

// The client may have been killed since it called.
void Host::OnReady(int64_t window) {
  const auto client = clients_.find(ClientOf(window));
  if (client != clients_.end())
    client->second.ready = true;
  ActSoon();
}

void Host::CheckClients() {
  for (const auto& [number, client] : clients_)
    ABSL_CHECK(!client.process->HasEnded())
        << "client " << number << " has died";
}

template <typename Predicate>
Host::Client* Host::AnyClient(Predicate fits) {
  std::vector<Client*> fitting;
  for (auto& [number, client] : clients_) {
    if (fits(client))
      fitting.push_back(&client);
  }
  if (fitting.empty())
    return nullptr;
  std::uniform_int_distribution<size_t> any(0, fitting.size() - 1);
  return fitting[any(random_)];
}

// Acts on a later turn. This is called in a question's callback, where asking
// about the same window is not allowed.
void Host::ActSoon() {
  if (std::exchange(act_scheduled_, true))
    return;
  loop_.Post([this] {
    act_scheduled_ = false;
    Act();
  });
}

void Host::Act() {
  for (; settled_ > 0; --settled_)
    MaybeDisturbClients();
  StartMissingClients();
  AskAll();
}

void Host::MaybeDisturbClients() {
  if (OneIn(kSettledPerKill))
    Kill();
  if (OneIn(kSettledPerStop))
    Stop();
  if (OneIn(kSettledPerContinue))
    Continue();
  if (OneIn(kSettledPerEvent))
    PublishEvent();
}

void Host::Kill() {
  Client* const client = AnyClient([](const Client& c) { return c.ready; });
  if (client == nullptr)
    return;
  ++outcome_.kills;
  outcome_.kills_with_questions_pending += client->pending > 0 ? 1 : 0;
  const auto entry = std::ranges::find_if(
      clients_, [client](const auto& e) { return &e.second == client; });
  deaths_.Add(entry->first, client->pending, std::chrono::steady_clock::now());
  clients_.erase(entry);
}

size_t Host::RunningClients() const {
  size_t running = 0;
  for (const auto& [number, client] : clients_)
    running += client.process->stopped() ? 0 : 1;
  return running;
}

void Host::Stop() {
  // Enough clients must go on answering, since the host acts only when
  // questions settle.
  if (RunningClients() <= (options_.clients + 1) / 2)
    return;
  Client* const client = AnyClient(
      [](const Client& c) { return c.ready && !c.process->stopped(); });
  if (client == nullptr)
    return;
  ++outcome_.stops;
  client->process->Stop();
}

void Host::Continue() {
  Client* const client =
      AnyClient([](const Client& c) { return c.process->stopped(); });
  if (client == nullptr)
    return;
  ++outcome_.continues;
  client->process->Continue();
}

void Host::PublishEvent() {
  std::uniform_int_distribution<int64_t> any(0, kWindowsPerClient - 1);
  for (const auto& [number, client] : clients_) {
    rpc::BrowserWindowClosed event;
    event.mutable_browser_id()->set_value(WindowOf(number, any(random_)));
    event.set_reason(rpc::WINDOW_CLOSE_REASON_USER);
    event.set_title("A page about nothing in particular");
    torvane::EventStream<rpc::BrowserWindowClosed>::Publish(event.browser_id(),
                                                            event);
    ++outcome_.events_published;
  }
}

void Host::AskAll() {
  for (auto& [number, client] : clients_) {
    while (client.ready && client.pending < kQuestionsPerClient && !IsOver()) {
      if (!Ask(number))
        break;
      ++client.pending;
    }
  }
}

bool Host::Ask(int64_t number) {
  std::uniform_int_distribution<int64_t> any_window(0, kWindowsPerClient - 1);
  std::uniform_int_distribution<int32_t> any_place(0, 1'000'000);
  const Question record = {number, any_place(random_), any_place(random_)};
  ShowContextMenu question;
  question.mutable_browser_id()->set_value(
      WindowOf(number, any_window(random_)));
  question.mutable_question()->set_x(record.x);
  question.mutable_question()->set_y(record.y);
  const uint64_t id = next_question_++;
  pending_.emplace(id, record);
  ++outcome_.asked;
  if (options_.patience && OneIn(kQuestionsPerImpatientOne)) {
    rpc::serving::AskWithin<ShowContextMenu>(
        loop_, *options_.patience, question,
        [this, id](QuestionOutcome how, const ShowContextMenu& answer) {
          OnOutcome(id, how, answer);
        });
    return true;
  }
  const bool asked = torvane::CallbackStream<ShowContextMenu>::Ask(
      question,
      {.response_callback =
           [this, id](ShowContextMenu& answer) { OnAnswer(id, answer); },
       .error_callback =
           [this, id](torvane::StreamCallError error) {
             RecordEnd(id, error == torvane::StreamCallError::kRemoteError
                               ? outcome_.declined
                               : outcome_.cancelled);
           }});
  // Then the client has ended its subscription or is being disconnected.
  if (!asked) {
    pending_.erase(id);
    --outcome_.asked;
  }
  return asked;
}

void Host::OnAnswer(uint64_t id, const ShowContextMenu& answer) {
  const auto question = pending_.find(id);
  if (question != pending_.end()) {
    const auto& repeated = answer.response().omitted_command_ids();
    const bool fits = repeated.size() == 2 &&
                      repeated[0] == question->second.x &&
                      repeated[1] == question->second.y;
    outcome_.wrong += fits ? 0 : 1;
  }
  RecordEnd(id, outcome_.answered);
}

void Host::OnOutcome(uint64_t id,
                     QuestionOutcome how,
                     const ShowContextMenu& answer) {
  switch (how) {
    case QuestionOutcome::kAnswered:
      return OnAnswer(id, answer);
    case QuestionOutcome::kClientFailed:
      return RecordEnd(id, outcome_.declined);
    case QuestionOutcome::kTooLate:
      return RecordEnd(id, outcome_.too_late);
    case QuestionOutcome::kNobodyAnswers:
    case QuestionOutcome::kClientLeft:
      return RecordEnd(id, outcome_.cancelled);
  }
}

// `counter` counts the questions that have ended in this way.
void Host::RecordEnd(uint64_t id, uint64_t& counter) {
  const auto question = pending_.find(id);
  if (question == pending_.end()) {
    ++outcome_.doubled;
    return;
  }
  ForgetQuestionOf(question->second.client);
  pending_.erase(question);
  ++counter;
  ++settled_;
  ActSoon();
}

void Host::ForgetQuestionOf(int64_t number) {
  const auto client = clients_.find(number);
  if (client != clients_.end()) {
    --client->second.pending;
    return;
  }
  deaths_.OnSettled(number, std::chrono::steady_clock::now());
}

// Kills all clients and waits until their connections are closed. A question
// that has not ended then is lost.
void Host::KillAllClients() {
  deaths_.Forget();
  clients_.clear();
  ABSL_CHECK(loop_.RunUntil(
      [this] { return server_.counters().connections_now == 0; }));
  loop_.RunReady();
}

Outcome Host::Summary() {
  outcome_.lost = pending_.size();
  const Tally& tally = tally_.get();
  outcome_.answers_sent = tally.answers;
  outcome_.questions_declined = tally.declined;
  outcome_.events_received = tally.events;
  outcome_.calls_succeeded = tally.calls;
  outcome_.calls_failed = tally.failed_calls;
  outcome_.connections = server_.counters().connections_accepted;
  outcome_.memory_at_end = ResidentBytes();
  outcome_.descriptors_at_end = OpenDescriptors();
  return outcome_;
}

}  // namespace

Outcome RunHost(const HostOptions& options) {
  return Host(options).Run();
}

}  // namespace soak
