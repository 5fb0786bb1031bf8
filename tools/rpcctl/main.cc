// Calls, watches and answers any method of any server on a socket that says
// what it offers, without having been built with its proto files.

#include "tools/rpcctl/program.h"

namespace rpcctl {
namespace {

constexpr char kHelp[] =
    R"(rpcctl: uses any service of a server, without knowing it beforehand.

  rpcctl list                        lists the services of the server
  rpcctl list SERVICE                lists the methods of a service
  rpcctl describe NAME               prints how something is declared
  rpcctl call METHOD JSON            calls a unary method, prints its response
  rpcctl watch METHOD KEY...         prints the events about the keys as lines of
                                     JSON, until interrupted
  rpcctl answer METHOD KEY...        answers the server's questions about the
                                     keys, until interrupted
  rpcctl status                      shows who is connected to the server, what
                                     is under way, and what had to be refused

'rpcctl COMMAND --help' says more about a command.

Flags:
  --socket PATH      where the server listens; required
  --timeout SECONDS  how long connecting and the responses may take together,
                     from 0.001 to 86400; default: 10. For 'watch' and 'answer'
                     this is the time to connect and subscribe; after that they
                     wait without a limit
  --with JSON        'answer' only: the same answer to every question
  --exec COMMAND     'answer' only: runs COMMAND with the shell for each
                     question, which stands on its standard input; what it
                     prints is the answer
  --json             'status' only: prints a line of JSON
  -h, --help         prints this

The server says itself what its services look like: it offers the service
rpc.reflection.ServerReflection. What that says of a server's files is taken up
to 4 MiB.

Exit status: 0 success, 1 the call failed, 2 wrong usage, 3 no connection.
)";

constexpr char kListHelp[] =
    R"(rpcctl --socket PATH list [SERVICE]

Prints the full names of the server's services, one a line. With the full name
of a service: its methods, one a line, each with its request, its response and
its kind: unary, event stream, callback stream, or stream, which no command can
use.
)";

constexpr char kDescribeHelp[] =
    R"(rpcctl --socket PATH describe NAME

Prints how a service, method, message or enum of the server is declared; of a
method also its messages. NAME is the full name, such as shop.Shop.GetPrice.
)";

constexpr char kCallHelp[] =
    R"(rpcctl --socket PATH call METHOD JSON

Calls a unary method with a request in JSON, and prints the response, a line of
JSON. METHOD is the method's full name, such as shop.Shop.GetPrice, or as much
of its end as no other method has: Shop.GetPrice or GetPrice. 'describe METHOD'
shows what its request looks like.

  rpcctl --socket PATH call shop.Shop.GetPrice '{"value": 7}'
)";

constexpr char kWatchHelp[] =
    R"(rpcctl --socket PATH watch METHOD KEY...

Subscribes to events about the keys, and prints each as a line of JSON until it
is interrupted. METHOD is an event stream, named as for 'call'. A KEY is what
the events are about, in JSON; of one with a single field its value will do: 7
instead of {"value": 7}. Standard error says when it is subscribed.

  rpcctl --socket PATH watch WhenPriceChanges 7 8
)";

constexpr char kAnswerHelp[] =
    R"(rpcctl --socket PATH answer METHOD KEY...

Answers the server's questions about the keys until it is interrupted. METHOD is
a callback stream, named as for 'call', and a KEY is written as for 'watch'.
Each question is printed as a line of JSON, the method's message. An answer is
the JSON of the message's field 'response'. A question without a usable answer
is declined, and so is one that the server no longer waits for; standard error
says why.

  --with JSON        the same answer to every question
  --exec COMMAND     runs COMMAND with the shell for each question, which stands
                     on its standard input; what it prints is the answer

Without --with and --exec, the answers are read from standard input. At a
terminal you are asked, one question after the other, and told how long you
have, if the question says so in its field answer_within_ms. From a pipe or a
file the next line is the answer to each question, also where it comes before
its question. 'answer' ends when the input has ended and is used up.

  rpcctl --socket PATH answer MayDiscount 7 --with '{"allowed": true}'
)";

constexpr char kStatusHelp[] =
    R"(rpcctl --socket PATH status [--json]

Prints who is connected to the server, what is under way for whom, which
questions have waited longest, and how often each limit was reached. The server
offers the service rpc.status.ServerStatus for it.
)";

Program MakeProgram() {
  return {
      .help = kHelp,
      .commands = {{"list", List, kListHelp},
                   {"describe", Describe, kDescribeHelp},
                   {"call", Call, kCallHelp},
                   {"watch", Watch, kWatchHelp},
                   {"answer", Answer, kAnswerHelp},
                   {"status", Status, kStatusHelp}},
      .forms = {.list = "rpcctl list SERVICE",
                .call = "rpcctl call $0 JSON",
                .watch = "rpcctl watch $0 KEY...",
                .answer = "rpcctl answer $0 KEY..."},
      .absent_server_hint = "\nIs the server running, with the same --socket?",
  };
}

}  // namespace
}  // namespace rpcctl

int main(int argc, char** argv) {
  return rpcctl::RunProgram(rpcctl::MakeProgram(), argc, argv);
}
