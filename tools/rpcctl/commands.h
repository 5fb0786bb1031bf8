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

namespace rpcctl {

class Session;

using Arguments = std::vector<std::string>;

// list [SERVICE]
ExitCode List(Session& session, const Arguments& arguments);

// describe NAME
ExitCode Describe(Session& session, const Arguments& arguments);

// call METHOD JSON
ExitCode Call(Session& session, const Arguments& arguments);

// watch METHOD KEY...
ExitCode Watch(Session& session, const Arguments& arguments);

// answer METHOD KEY...
ExitCode Answer(Session& session, const Arguments& arguments);

// status
ExitCode Status(Session& session, const Arguments& arguments);

// What a stream is subscribed to: messages of the type that KeyTypeOf() says.
using Keys = std::vector<std::unique_ptr<google::protobuf::Message>>;

// Makes a call after the subscriptions have been sent: its reply says that they
// are in effect. Prints why it has failed.
using AwaitReply = std::function<ExitCode(Session& session)>;

// Print the events, and answer the questions, about the keys until the user
// interrupts them. `name` says what a key is called in a prompt. The method is
// an event stream, or a callback stream. The flags --with and --exec say how to
// answer.
ExitCode WatchEvents(Session& session,
                     const google::protobuf::MethodDescriptor* method,
                     const Keys& keys,
                     const AwaitReply& await_reply);
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
