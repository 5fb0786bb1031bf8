// A house of one age, as server and as client. Compiled once for each age, with
// the code that is generated for its contract: two ages of one contract do not
// go together in a program.
//
//   age_3 serve FD    serves the connected socket FD until its client leaves
//   age_3 call FD     uses every method of its own contract, and prints what
//                     becomes of it, a line each, in the order of the contract
//
// What is said in any message names the method that says it and repeats what it
// was asked, so that the lines tell which method was reached and what it has
// understood.

#include <google/protobuf/message.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "absl/log/absl_check.h"
#include "absl/status/status.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/server.h"
#include "house.pb.h"
#include "house.rpc.h"

namespace ages {
namespace {

using google::protobuf::Closure;
using google::protobuf::FieldDescriptor;
using google::protobuf::RpcController;
using rpc::serving::QuestionOutcome;

const BrowserId kWindow = torvane::WindowId(7);

// Every field that this age knows, so that each has to be understood or ignored
// by the other.
Said Say(const std::string& who) {
  Said said;
  const google::protobuf::Reflection& fields = *said.GetReflection();
  for (int i = 0; i < Said::descriptor()->field_count(); ++i) {
    const FieldDescriptor* field = Said::descriptor()->field(i);
    if (field->type() == FieldDescriptor::TYPE_STRING) {
      fields.SetString(&said, field, field->name());
    } else {
      fields.SetInt64(&said, field, field->number());
    }
  }
  said.set_who(who);
  return said;
}

// What this age understands of a message: "who=visitor why=why".
std::string Understood(const Said& said) {
  const google::protobuf::Reflection& fields = *said.GetReflection();
  std::vector<const FieldDescriptor*> present;
  fields.ListFields(said, &present);
  std::vector<std::string> words;
  for (const FieldDescriptor* field : present) {
    words.push_back(
        absl::StrCat(field->name(), "=",
                     field->type() == FieldDescriptor::TYPE_STRING
                         ? fields.GetString(said, field)
                         : absl::StrCat(fields.GetInt64(said, field))));
  }
  return absl::StrJoin(words, " ");
}

// Each method answers with its name, and with what it was asked.
class HouseService final : public HouseRpc {
 public:
#define UNARY(method)                                                       \
  void method(RpcController*, const Said* request, Said* response,          \
              Closure* done) override {                                     \
    *response = Say(absl::StrCat(#method, "(", Understood(*request), ")")); \
    done->Run();                                                            \
  }
#define EVENTS(method, event)
#define QUESTIONS(method, question)
#include "methods.inc"
#undef UNARY
#undef EVENTS
#undef QUESTIONS
};

std::string_view NameOf(QuestionOutcome outcome) {
  switch (outcome) {
    case QuestionOutcome::kAnswered:
      return "answered";
    case QuestionOutcome::kNobodyAnswers:
      return "nobody answers";
    case QuestionOutcome::kClientFailed:
      return "declined";
    case QuestionOutcome::kClientLeft:
      return "the client left";
    case QuestionOutcome::kTooLate:
      return "too late";
  }
  return "";
}

class BellService final : public BellRpc {
 public:
  explicit BellService(rpc::loop::Loop& loop) : loop_(loop) {}

  void Ring(RpcController*,
            const Nothing*,
            Outcomes* response,
            Closure* done) override {
    response_ = response;
    done_ = done;
    // The loop settles them after this returns.
#define UNARY(method)
#define EVENTS(method, event) Publish<event>(#method);
#define QUESTIONS(method, question) Ask<question>(#method);
#include "methods.inc"
#undef UNARY
#undef EVENTS
#undef QUESTIONS
  }

 private:
  template <typename Event>
  void Publish(const std::string& method) {
    Event event;
    *event.mutable_said() = Say(method);
    torvane::EventStream<Event>::Publish(kWindow, event);
  }

  template <typename Question>
  void Ask(const std::string& method) {
    Question question;
    *question.mutable_browser_id() = kWindow;
    *question.mutable_question() = Say(method);
    std::string* said = response_->add_outcomes();
    ++pending_;
    rpc::serving::AskWithin<Question>(
        loop_, std::chrono::hours(1), question,
        [this, method, said](QuestionOutcome outcome, const Question& answer) {
          *said = absl::StrCat(method, " asked: ", NameOf(outcome));
          if (outcome == QuestionOutcome::kAnswered) {
            absl::StrAppend(said, " ", Understood(answer.response()));
          }
          OnSettled();
        });
  }

  void OnSettled() {
    if (--pending_ == 0) {
      done_->Run();
    }
  }

  rpc::loop::Loop& loop_;
  int pending_ = 0;
  Outcomes* response_ = nullptr;
  Closure* done_ = nullptr;
};

// Uses all methods of its own contract over one connection.
class Visitor {
 public:
  explicit Visitor(rpc::transport::Client& client)
      : client_(client), house_(&client) {}

  std::vector<std::string> VisitAll() {
    // A call is answered after the subscriptions that were sent before it have
    // taken effect, and after what was sent to their streams before it returns.
#define UNARY(method)
#define EVENTS(method, event) Subscribe<event>(#method);
#define QUESTIONS(method, question) Answer<question>(#method);
#include "methods.inc"
#undef UNARY
#undef EVENTS
#undef QUESTIONS
#define UNARY(method) Call(#method, &House_Stub::method);
#define EVENTS(method, event)
#define QUESTIONS(method, question)
#include "methods.inc"
#undef UNARY
#undef EVENTS
#undef QUESTIONS
    Ring();
    return Lines();
  }

 private:
  using Method = void (House_Stub::*)(RpcController*,
                                      const Said*,
                                      Said*,
                                      Closure*);

  static const google::protobuf::MethodDescriptor* Find(
      const std::string& method) {
    return House::descriptor()->FindMethodByName(method);
  }

  void Note(const std::string& method, std::string_view what) {
    seen_[Find(method)->index()].push_back(absl::StrCat(method, ": ", what));
  }

  void NoteEnd(const std::string& method, const absl::Status& status) {
    Note(method, status.ToString());
  }

  void Call(const std::string& name, Method method) {
    rpc::transport::ClientController controller;
    const Said request = Say("visitor");
    Said response;
    (house_.*method)(&controller, &request, &response, nullptr);
    if (controller.status().ok()) {
      Note(name, Understood(response));
    } else {
      NoteEnd(name, controller.status());
    }
  }

  template <typename Event>
  void Subscribe(const std::string& method) {
    auto subscriber = std::make_shared<rpc::transport::EventSubscriber<Event>>(
        client_, Find(method),
        [this, method](const Event& event) {
          Note(method, absl::StrCat("event ", Understood(event.said())));
        },
        [this, method](const absl::Status& status) {
          NoteEnd(method, status);
        });
    subscriber->Subscribe(kWindow);
    streams_.push_back(std::move(subscriber));
  }

  template <typename Question>
  void Answer(const std::string& method) {
    using Answerer = rpc::transport::CallbackAnswerer<Question>;
    auto answerer = std::make_shared<Answerer>(
        client_, Find(method),
        [this, method](const Question& question,
                       typename Answerer::Reply reply) {
          const std::string asked = Understood(question.question());
          Note(method, absl::StrCat("question ", asked));
          Question answer;
          *answer.mutable_response() =
              Say(absl::StrCat(method, "(", asked, ")"));
          reply.Answer(std::move(answer)).IgnoreError();
        },
        [this, method](const absl::Status& status) {
          NoteEnd(method, status);
        });
    answerer->Subscribe(kWindow);
    streams_.push_back(std::move(answerer));
  }

  void Ring() {
    rpc::transport::ClientController controller;
    const Nothing nothing;
    Outcomes outcomes;
    Bell_Stub(&client_).Ring(&controller, &nothing, &outcomes, nullptr);
    ABSL_CHECK(controller.status().ok()) << controller.status();
    outcomes_.assign(outcomes.outcomes().begin(), outcomes.outcomes().end());
  }

  // A method of which nothing was heard has a line, too.
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    for (int i = 0; i < House::descriptor()->method_count(); ++i) {
      const auto seen = seen_.find(i);
      if (seen == seen_.end()) {
        lines.push_back(
            absl::StrCat(House::descriptor()->method(i)->name(), ": nothing"));
      } else {
        lines.insert(lines.end(), seen->second.begin(), seen->second.end());
      }
    }
    lines.insert(lines.end(), outcomes_.begin(), outcomes_.end());
    return lines;
  }

  rpc::transport::Client& client_;
  House_Stub house_;
  std::list<std::shared_ptr<void>> streams_;
  // By the index of the method.
  std::map<int, std::vector<std::string>> seen_;
  std::vector<std::string> outcomes_;
};

void Serve(rpc::loop::ScopedFd socket) {
  rpc::loop::Loop loop;
  HouseService house;
  BellService bell(loop);
  rpc::transport::Server server(loop);
  server.AddService(&house);
  server.AddService(&bell);
  server.Adopt(std::move(socket));
  loop.RunUntil([&server] { return server.counters().connections_now == 0; });
}

void CallAll(rpc::loop::ScopedFd socket) {
  rpc::loop::Loop loop;
  auto client = rpc::transport::Client::Adopt(loop, std::move(socket));
  ABSL_CHECK(client.ok()) << client.status();
  for (const std::string& line : Visitor(**client).VisitAll()) {
    std::cout << line << '\n';
  }
}

int Main(int argc, char** argv) {
  int fd = -1;
  if (argc != 3 || !absl::SimpleAtoi(argv[2], &fd)) {
    return 2;
  }
  rpc::loop::ScopedFd socket(fd);
  const std::string_view side = argv[1];
  if (side == "serve") {
    Serve(std::move(socket));
    return 0;
  }
  if (side == "call") {
    CallAll(std::move(socket));
    return 0;
  }
  return 2;
}

}  // namespace
}  // namespace ages

int main(int argc, char** argv) {
  return ages::Main(argc, argv);
}
