// The commands that work with any method of any service, each in a source of
// its own.
//
// A command gets its arguments without its own name, prints results to standard
// output and errors to standard error, and returns the exit code of the
// process. It runs on the main thread, with the loop of the session if it needs
// one. A METHOD is written as FindMethod() reads it, a KEY as ParseKeys() does.

#ifndef TOOLS_RPCCTL_COMMANDS_H_
#define TOOLS_RPCCTL_COMMANDS_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "absl/status/status.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/options.h"

namespace rpcctl {

class Session;

using Arguments = std::vector<std::string>;

// list [SERVICE]
ExitCode List(Session& session, const Arguments& arguments);

// describe NAME
ExitCode Describe(Session& session, const Arguments& arguments);

// call METHOD REQUEST...
ExitCode Call(Session& session, const Arguments& arguments);

// watch METHOD KEY...
ExitCode Watch(Session& session, const Arguments& arguments);

// answer METHOD KEY...
ExitCode Answer(Session& session, const Arguments& arguments);

// status
ExitCode Status(Session& session, const Arguments& arguments);

// Connects, calls a unary method of the contract, which is loaded, and prints
// its response.
ExitCode CallMethod(
    Session& session,
    const google::protobuf::MethodDescriptor& method,
    const google::protobuf::Message& request,
    const std::function<void(const google::protobuf::Message&)>& print);

// What a stream is subscribed to: messages of the type that KeyTypeOf() says.
using Keys = std::vector<std::unique_ptr<google::protobuf::Message>>;

// Makes a call after the subscriptions have been sent: its reply says that they
// are in effect. Prints why it has failed.
using AwaitReply = std::function<ExitCode(Session& session)>;

// Events to watch: those of an event stream about the keys.
struct EventSource {
  const google::protobuf::MethodDescriptor* method = nullptr;
  Keys keys;
  // What tells its events from those of other sources, such as "opened"; may be
  // empty.
  std::string label;
};

// What is printed for an event: its JSON, or {"opened":{...}} if its source has
// a label. With --timestamps
// {"time":"2026-01-31T12:00:00.000000Z","event":...}.
std::string EventLine(const Options& options,
                      const std::string& label,
                      const google::protobuf::Message& event);

// Prints the events of all sources until the user interrupts it.
ExitCode WatchEvents(Session& session,
                     const std::vector<EventSource>& sources,
                     const AwaitReply& await_reply);

// Answers the questions about the keys until the user interrupts it. `name`
// says what a key is called in a prompt. The method is a callback stream. The
// flags
// --with and --exec say how to answer.
ExitCode AnswerQuestions(
    Session& session,
    const google::protobuf::MethodDescriptor* method,
    const Keys& keys,
    const std::function<std::string(const google::protobuf::Message&)>& name,
    const AwaitReply& await_reply);

// The name by which the program was started.
std::string_view ProgramName();

// Writes a line to standard output as it is, and flushes it, since a script may
// wait for it. For JSON of ToJson(), in which nothing is left to be escaped.
void PrintLine(const std::string& line);

// Prints a line to standard error, after the program's name.
void Say(std::string_view line);

// Print to standard error what is wrong, and return `exit_code`: a text of our
// own, or the code and text of the status that a call or a stream has ended
// with. Both are printed in printable characters (tools/cli/printable.h); line
// breaks stay in the text, but not in that of a status, which is the server's.
ExitCode Fail(ExitCode exit_code, std::string_view text);
ExitCode Fail(ExitCode exit_code, const absl::Status& status);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_COMMANDS_H_
