// Clients and servers of one service that were built from contracts of
// different age. Each of the five ages serves each, over a socket pair, as
// programs of their own (age_program.cc): every call reaches the method of its
// name and kind or fails with UNIMPLEMENTED and a text that names it, and every
// event and question is understood or refused.
//
// What a pair should say follows from ContractOf(), which restates the
// contracts in age_N/house.proto, and from one rule for all pairs, Meeting.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "absl/strings/str_split.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "tools/cli/child_process.h"

namespace rpc {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr int kAges = 5;

enum class Kind { kUnary, kEvents, kQuestions };

struct Method {
  std::string name;
  Kind kind;
};

struct Field {
  std::string name;
  std::string value;
};

struct Contract {
  // In the order of their declaration.
  std::vector<Method> methods;
  // The fields of what is said, by their numbers.
  std::map<int, Field> fields;
  // The number of the field that a question is in.
  int question = 3;
};

const Contract& ContractOf(int age) {
  constexpr Kind kUnary = Kind::kUnary;
  constexpr Kind kEvents = Kind::kEvents;
  constexpr Kind kQuestions = Kind::kQuestions;
  const Field who = {"who", ""};
  const Field why = {"why", "why"};
  const Field how = {"how", "how"};
  const Field weight = {"weight", "2"};
  static const std::array<Contract, kAges> contracts = {
      Contract{{{"Open", kUnary},
                {"Close", kUnary},
                {"Lock", kUnary},
                {"WhenOpened", kEvents},
                {"WhenClosed", kEvents},
                {"OnLeave", kQuestions},
                {"OnEnter", kQuestions}},
               {{1, who}, {2, why}}},
      Contract{{{"Open", kUnary},
                {"Close", kUnary},
                {"Lock", kUnary},
                {"WhenOpened", kEvents},
                {"WhenClosed", kEvents},
                {"OnLeave", kQuestions},
                {"OnEnter", kQuestions},
                {"Paint", kUnary}},
               {{1, who}, {2, why}, {3, how}}},
      Contract{{{"Open", kUnary},
                {"Knock", kUnary},
                {"Close", kUnary},
                {"Lock", kUnary},
                {"WhenOpened", kEvents},
                {"WhenKnocked", kEvents},
                {"WhenClosed", kEvents},
                {"OnLeave", kQuestions},
                {"OnVisit", kQuestions},
                {"OnEnter", kQuestions},
                {"Paint", kUnary}},
               {{1, who}, {2, why}, {3, how}}},
      Contract{{{"Open", kUnary},
                {"Knock", kUnary},
                {"Secure", kUnary},
                {"WhenOpened", kEvents},
                {"WhenShut", kEvents},
                {"OnLeave", kQuestions},
                {"OnGuest", kQuestions},
                {"Paint", kUnary}},
               {{1, who}, {3, how}}},
      Contract{{{"Secure", kUnary},
                {"Knock", kUnary},
                {"Open", kUnary},
                {"WhenShut", kEvents},
                {"WhenOpened", kEvents},
                {"OnGuest", kQuestions},
                {"Paint", kUnary},
                {"OnLeave", kQuestions},
                {"Lock", kEvents},
                {"WhenKnocked", kQuestions},
                {"OnEnter", kEvents}},
               {{1, who}, {2, weight}, {3, how}},
               5}};
  return contracts.at(static_cast<size_t>(age - 1));
}

const Method* Find(const Contract& contract, const std::string& name) {
  for (const Method& method : contract.methods) {
    if (method.name == name) {
      return &method;
    }
  }
  return nullptr;
}

// What a server and a client of these contracts say to each other, in the lines
// that the client prints.
class Meeting {
 public:
  Meeting(const Contract& server, const Contract& client)
      : server_(server), client_(client) {}

  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    for (const Method& method : client_.methods) {
      lines.push_back(absl::StrCat(method.name, ": ", WhatBecomesOf(method)));
    }
    for (const Method& method : server_.methods) {
      if (method.kind == Kind::kQuestions) {
        lines.push_back(
            absl::StrCat(method.name, " asked: ", OutcomeOf(method)));
      }
    }
    return lines;
  }

 private:
  // What the reader understands when the writer says all that it knows.
  static std::string Read(const Contract& reader,
                          const Contract& writer,
                          const std::string& who) {
    std::vector<std::string> words = {absl::StrCat("who=", who)};
    for (const auto& [number, field] : reader.fields) {
      const auto written = writer.fields.find(number);
      if (number != 1 && written != writer.fields.end() &&
          written->second.name == field.name) {
        words.push_back(absl::StrCat(field.name, "=", field.value));
      }
    }
    return absl::StrJoin(words, " ");
  }

  std::string WhatBecomesOf(const Method& method) const {
    const Method* served = Find(server_, method.name);
    const std::string name = absl::StrCat("ages.House.", method.name);
    if (served == nullptr) {
      return absl::StrCat("UNIMPLEMENTED: the server has no method ", name);
    }
    if (served->kind != method.kind) {
      return absl::StrCat("UNIMPLEMENTED: ", name, " is ",
                          Difference(served->kind, method.kind));
    }
    switch (method.kind) {
      case Kind::kUnary:
        return Read(client_, server_,
                    absl::StrCat(method.name, "(",
                                 Read(server_, client_, "visitor"), ")"));
      case Kind::kEvents:
        return absl::StrCat("event ", Read(client_, server_, method.name));
      case Kind::kQuestions:
        return UnderstandsQuestions()
                   ? absl::StrCat("question ",
                                  Read(client_, server_, method.name))
                   : "nothing";
    }
    return "";
  }

  std::string OutcomeOf(const Method& method) const {
    const Method* answers = Find(client_, method.name);
    if (answers == nullptr || answers->kind != Kind::kQuestions) {
      return "nobody answers";
    }
    if (!UnderstandsQuestions()) {
      return "declined";
    }
    const std::string asked = Read(client_, server_, method.name);
    return absl::StrCat(
        "answered ",
        Read(server_, client_, absl::StrCat(method.name, "(", asked, ")")));
  }

  // A question in a field that the client does not know, or knows as something
  // else, is declined.
  bool UnderstandsQuestions() const {
    return server_.question == client_.question;
  }

  static std::string Difference(Kind served, Kind wanted) {
    if (wanted == Kind::kUnary) {
      return "a stream on the server";
    }
    switch (served) {
      case Kind::kUnary:
        return "no stream on the server";
      case Kind::kEvents:
        return "an event stream on the server, not a callback stream";
      case Kind::kQuestions:
        return "a callback stream on the server, not an event stream";
    }
    return "";
  }

  const Contract& server_;
  const Contract& client_;
};

pid_t Start(int age, const std::string& side, int socket, int output) {
  constexpr int kSocket = 3;
  return cli::StartProcess(
      {absl::StrCat(AGE_PROGRAMS, "/age_", age), side, absl::StrCat(kSocket)},
      {{output, STDOUT_FILENO}, {socket, kSocket}});
}

void AwaitSuccess(pid_t pid) {
  int status = 0;
  ABSL_PCHECK(waitpid(pid, &status, 0) == pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

std::string ReadAll(int fd) {
  std::string text;
  std::array<char, 4096> some;
  ssize_t size;
  while ((size = read(fd, some.data(), some.size())) > 0) {
    text.append(some.data(), static_cast<size_t>(size));
  }
  return text;
}

// What the client prints.
std::vector<std::string> Meet(int server_age, int client_age) {
  int ends[2];
  ABSL_PCHECK(pipe2(ends, O_CLOEXEC) == 0);
  loop::ScopedFd read_end(ends[0]);
  pid_t server;
  pid_t client;
  {
    const loop::ScopedFd write_end(ends[1]);
    const auto [ours, theirs] = torvane::SocketPair();
    server = Start(server_age, "serve", ours.get(), STDERR_FILENO);
    client = Start(client_age, "call", theirs.get(), write_end.get());
  }
  const std::string said = ReadAll(read_end.get());
  AwaitSuccess(client);
  AwaitSuccess(server);
  return absl::StrSplit(said, '\n', absl::SkipEmpty());
}

struct Pair {
  int server;
  int client;
};

std::vector<Pair> AllPairs() {
  std::vector<Pair> pairs;
  for (int server = 1; server <= kAges; ++server) {
    for (int client = 1; client <= kAges; ++client) {
      pairs.push_back({server, client});
    }
  }
  return pairs;
}

class Ages : public ::testing::TestWithParam<Pair> {};

TEST_P(Ages, TakeNoMethodAndNoMessageForAnother) {
  const auto [server, client] = GetParam();
  EXPECT_THAT(Meet(server, client),
              ElementsAreArray(
                  Meeting(ContractOf(server), ContractOf(client)).Lines()));
}

INSTANTIATE_TEST_SUITE_P(Pairs,
                         Ages,
                         ::testing::ValuesIn(AllPairs()),
                         [](const ::testing::TestParamInfo<Pair>& pair) {
                           return absl::StrCat("ServerOfAge", pair.param.server,
                                               "ClientOfAge",
                                               pair.param.client);
                         });

// Two of the pairs word for word, so that the rule above is tested, too.
TEST(AgesWordForWord, TheFirstClientAtTheLastServer) {
  EXPECT_THAT(
      Meet(5, 1),
      ElementsAre(
          "Open: who=Open(who=visitor)",
          "Close: UNIMPLEMENTED: the server has no method ages.House.Close",
          "Lock: UNIMPLEMENTED: ages.House.Lock is a stream on the server",
          "WhenOpened: event who=WhenOpened",
          "WhenClosed: UNIMPLEMENTED: the server has no method "
          "ages.House.WhenClosed",
          "OnLeave: nothing",
          "OnEnter: UNIMPLEMENTED: ages.House.OnEnter is an event stream on "
          "the "
          "server, not a callback stream",
          "OnGuest asked: nobody answers", "OnLeave asked: declined",
          "WhenKnocked asked: nobody answers"));
}

TEST(AgesWordForWord, TheSecondClientAtTheThirdServer) {
  EXPECT_THAT(
      Meet(3, 2),
      ElementsAre(
          "Open: who=Open(who=visitor why=why how=how) why=why how=how",
          "Close: who=Close(who=visitor why=why how=how) why=why how=how",
          "Lock: who=Lock(who=visitor why=why how=how) why=why how=how",
          "WhenOpened: event who=WhenOpened why=why how=how",
          "WhenClosed: event who=WhenClosed why=why how=how",
          "OnLeave: question who=OnLeave why=why how=how",
          "OnEnter: question who=OnEnter why=why how=how",
          "Paint: who=Paint(who=visitor why=why how=how) why=why how=how",
          "OnLeave asked: answered who=OnLeave(who=OnLeave why=why how=how) "
          "why=why how=how",
          "OnVisit asked: nobody answers",
          "OnEnter asked: answered who=OnEnter(who=OnEnter why=why how=how) "
          "why=why how=how"));
}

}  // namespace
}  // namespace rpc
