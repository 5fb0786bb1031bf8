#include "tools/rpcctl/description.h"

#include "absl/strings/str_cat.h"

namespace rpcctl {
namespace {

cli::CommandDescription DescribeList() {
  return {
      .name = "list",
      .arguments = "[SERVICE]",
      .summary = "lists the services of the server, or the methods of one",
      .details =
          "Prints the full names of the server's services, one a line. With "
          "the full name of a service: its methods, one a line, each with its "
          "request, its response and its kind: unary, event stream, callback "
          "stream, or stream, which no command can use.",
      .examples = {"rpcctl --socket PATH list shop.Shop"},
  };
}

cli::CommandDescription DescribeWatch() {
  return {
      .name = "watch",
      .arguments = "METHOD KEY...",
      .summary =
          "prints the events about the keys as lines of JSON, until "
          "interrupted",
      .details =
          "METHOD is an event stream, named as for 'call'. A KEY is what the "
          "events are about, in JSON; of one with a single field its value "
          "will do: 7 instead of {\"value\": 7}. Standard error says when it "
          "is subscribed.",
      .flags = {TimestampsFlag()},
      .examples = {"rpcctl --socket PATH watch WhenPriceChanges 7 8"},
  };
}

cli::CommandDescription DescribeAnswer() {
  return {
      .name = "answer",
      .arguments = "METHOD KEY...",
      .summary =
          "answers the server's questions about the keys, until "
          "interrupted",
      .details = absl::StrCat(
          "METHOD is a callback stream, named as for 'call', and a KEY is "
          "written as for 'watch'.\n\n",
          AnswerDetails()),
      .flags = AnswerFlags(),
      .examples = {"rpcctl --socket PATH answer MayDiscount 7 --with "
                   "'{\"allowed\": true}'"},
  };
}

}  // namespace

cli::CommandDescription DescribeDescribe() {
  return {
      .name = "describe",
      .arguments = "NAME",
      .summary = "prints how something is declared",
      .details =
          "Of a method, named as for 'call', it prints what goes in and what "
          "comes out: each field with its path, its type and its comment, if "
          "there is one. A service, message or enum goes by its full name, and "
          "is printed as in a proto file.",
  };
}

cli::CommandDescription DescribeCall() {
  return {
      .name = "call",
      .arguments = "METHOD REQUEST",
      .summary = "calls a unary method, prints its response as a line of JSON",
      .details =
          "METHOD is the method's full name, such as rpc.BrowserWindow.Show, "
          "or as much of its end as no other method has. 'describe METHOD' "
          "shows what its request looks like. REQUEST is one of\n"
          "\n"
          "  JSON            the request\n"
          "  @FILE           a file with its JSON\n"
          "  -               its JSON is on standard input\n"
          "  FIELD=VALUE...  its fields, one by one\n"
          "\n"
          "A field of a message within goes by its path: bounds.width=800. An "
          "enum's value goes by its name, and a repeated field gets one more "
          "value each time.",
  };
}

cli::CommandDescription DescribeStatus() {
  return {
      .name = "status",
      .summary =
          "shows who is connected to the server, what is under way, and "
          "what had to be refused",
      .details =
          "Prints what is under way for whom, which questions have waited "
          "longest, and how often each limit was reached. The server offers "
          "the service rpc.status.ServerStatus for it.",
      .flags = {JsonFlag("a line of JSON"),
                {"prometheus", "",
                 "prints the figures of the whole server in the text format of "
                 "Prometheus"},
                {"watch", "",
                 "prints the status again each second until it is "
                 "interrupted; on a terminal in the same place"}},
  };
}

cli::FlagDescription TimeoutFlag() {
  return {"timeout", "SECONDS",
          "how long connecting and the responses may take together, from 0.001 "
          "to 86400; default: 10. For 'watch' and 'answer' this is the time to "
          "connect and subscribe; after that they wait without a limit"};
}

cli::FlagDescription TimestampsFlag() {
  return {"timestamps", "",
          "says when each event has come, in UTC as in RFC 3339: "
          "{\"time\":\"2026-01-31T12:00:00.000000Z\",\"event\":...}"};
}

cli::FlagDescription JsonFlag(const std::string& what) {
  return {"json", "", absl::StrCat("prints ", what)};
}

std::vector<cli::FlagDescription> AnswerFlags() {
  return {{"with", "JSON",
           "the same answer to every question; as for 'call', @FILE or - will "
           "do"},
          {"exec", "COMMAND",
           "runs COMMAND with the shell for each question, which stands on its "
           "standard input; what it prints is the answer"}};
}

std::string AnswerDetails() {
  return "Each question is printed as a line of JSON, the method's message. An "
         "answer is the JSON of the message's field 'response'. A question "
         "without a usable answer is declined, and so is one that the server "
         "no longer waits for; standard error says why.\n"
         "\n"
         "Without --with and --exec, the answers are read from standard input. "
         "At a terminal you are asked, one question after the other, and told "
         "how long you have, if the question says so in its field "
         "answer_within_ms; a line that is no answer is asked for again, and "
         "one that you type while no question is shown is not taken. From a "
         "pipe or a file the next line is the answer to each question, also "
         "where it comes before its question. 'answer' ends when the input has "
         "ended and is used up.";
}

std::vector<cli::ExitStatus> ExitStatuses() {
  return {{"0", "success"},
          {"1", "the call failed"},
          {"2", "wrong usage"},
          {"3", "no connection"}};
}

cli::ProgramDescription DescribeRpcctl() {
  cli::CommandDescription call = DescribeCall();
  call.examples = {
      "rpcctl --socket PATH call shop.Shop.GetPrice "
      "'{\"value\": 7}'",
      "rpcctl --socket PATH call GetPrice value=7"};
  cli::CommandDescription describe = DescribeDescribe();
  describe.examples = {"rpcctl --socket PATH describe shop.Shop.GetPrice"};
  return {
      .name = "rpcctl",
      .summary = "uses any service of a server, without knowing it beforehand",
      .commands = {DescribeList(), describe, call, DescribeWatch(),
                   DescribeAnswer(), DescribeStatus()},
      .flags = {{"socket", "PATH", "where the server listens; required"},
                TimeoutFlag(),
                cli::HelpFlag(),
                cli::VersionFlag()},
      .details =
          "The server says itself what its services look like: it offers the "
          "service rpc.reflection.ServerReflection. What that says of a "
          "server's files is taken up to 4 MiB.",
      .exit_statuses = ExitStatuses(),
  };
}

}  // namespace rpcctl
