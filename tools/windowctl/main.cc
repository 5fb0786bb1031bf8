// Drives the windows of a running host from the command line: the short form of
// rpcctl for the contract that it was built with.

#include "rpc/browser/browser_window.pb.h"
#include "tools/cli/flags.h"
#include "tools/cli/socket_path.h"
#include "tools/rpcctl/program.h"
#include "tools/windowctl/commands.h"

namespace windowctl {
namespace {

constexpr char kHelp[] =
    R"(windowctl: drives the windows of a running window_host.

  windowctl methods                  lists all methods of the service
  windowctl call METHOD JSON         calls a unary method, prints its response
  windowctl watch ID...              prints each event about the windows as a
                                     line of JSON, until interrupted
  windowctl answer METHOD ID...      answers the host's questions about the
                                     windows, until interrupted
  windowctl status                   shows who is connected to the host, what is
                                     under way, and what had to be refused

Flags:
  --socket PATH      where the host listens; default:
                     ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
  --timeout SECONDS  how long connecting and the response may take together,
                     from 0.001 to 86400; default: 10. For 'watch' and 'answer'
                     this is the time to connect and subscribe; after that they
                     wait without a limit
  --with JSON        'answer' only: the same answer to every question
  --exec COMMAND     'answer' only: runs COMMAND with the shell for each
                     question, which stands on its standard input; what it
                     prints is the answer
  --reconnect        'watch' only: waits for a host that is not there, and goes
                     on when it has gone and come again; standard error says
                     from when to when events may have been missed
  --json             'status' only: prints a line of JSON
  -h, --help         prints this

'answer' takes a method of the kind 'callback stream'; 'methods' lists them. It
prints each question as a line of JSON, the method's message. An answer is the
JSON of the message's field 'response': for OnCloseWindow {"allowed": true}, for
OnCanExecuteCommand the same, for OnShowContextMenu {"handled": true} or
{"omittedCommandIds": [1, 2]}. A question without a usable answer is declined,
and so is one that the host no longer waits for; standard error says why.

Without --with and --exec, the answers are read from standard input. At a
terminal you are asked, one question after the other, and told how long you
have; a line that is no answer is asked for again, and one that you type while
no question is shown is not taken. From a pipe or a file the next line is the
answer to each question, also where it comes before its question. 'answer' ends
when the input has ended and is used up.

Examples:
  windowctl call Maximize '{"value": 1}'
  windowctl call SetTitle '{"browserId": {"value": 1}, "title": "Inbox"}'
  windowctl answer OnCloseWindow 1 --with '{"allowed": false}'
  windowctl status --json | jq .connections

Exit status: 0 success, 1 the call failed, 2 wrong usage, 3 no connection.
)";

rpcctl::Program MakeProgram() {
  return {
      .help = kHelp,
      .commands = {{"methods", Methods},
                   {"call", rpcctl::Call},
                   {"watch", Watch},
                   {"answer", Answer},
                   {"status", rpcctl::Status}},
      .forms = {.list = "windowctl methods",
                .call = "windowctl call $0 JSON",
                .watch = "windowctl watch ID...",
                .answer = "windowctl answer $0 ID..."},
      .default_socket = cli::DefaultSocketPath,
      .absent_server_hint = "\nIs window_host running, with the same --socket?",
      .service = rpc::BrowserWindow::descriptor,
      .add_flags =
          [](cli::Flags& flags, rpcctl::Options& options) {
            flags.AddSwitch("reconnect", &options.reconnect);
          },
  };
}

}  // namespace
}  // namespace windowctl

int main(int argc, char** argv) {
  return rpcctl::RunProgram(windowctl::MakeProgram(), argc, argv);
}
