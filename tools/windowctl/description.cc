#include "tools/windowctl/description.h"

#include "absl/strings/str_cat.h"
#include "tools/rpcctl/description.h"
#include "tools/windowctl/method_commands.h"

namespace windowctl {
namespace {

cli::CommandDescription DescribeList() {
  return {
      .name = "list",
      .summary = "lists the open windows",
      .details =
          "Prints a table of the windows in the order in which they were "
          "opened. Of a title of more than 80 bytes it has the beginning.",
      .flags = {rpcctl::JsonFlag("a line of JSON for each window")},
      .examples = {"windowctl list",
                   "windowctl list --json | jq -r 'select(.active) | .title'"},
  };
}

cli::CommandDescription DescribeOpen() {
  return {
      .name = "open",
      .arguments = "[URL] [FIELD=VALUE...]",
      .summary = "opens a window, prints its id",
      .details =
          "The URL is absolute, such as https://example.org/; without one the "
          "host shows what it shows in a new window. A host whose windows have "
          "no pages, such as window_host, titles the window with it. x, y, "
          "width and height say where to open it; what is left out is the "
          "host's choice.",
      .flags = {rpcctl::JsonFlag("the whole window as a line of JSON")},
      .examples = {"windowctl open https://example.org/ width=800 height=600"},
  };
}

cli::CommandDescription DescribeWatch() {
  return {
      .name = "watch",
      .arguments = "ID... | --all",
      .summary =
          "prints each event about the windows as a line of JSON, until "
          "interrupted",
      .details =
          "Of windows that are named it says when they close. Standard error "
          "says when it is subscribed.",
      .flags = {{"all", "",
                 "instead of ids: says of any window when it opens and "
                 "when it closes, as {\"opened\":...} and {\"closed\":...}"},
                rpcctl::TimestampsFlag(),
                {"reconnect", "",
                 "waits for a host that is not there, and goes on when it has "
                 "gone and come again; standard error says from when to when "
                 "events may have been missed"}},
      .examples = {"windowctl watch 1 2", "windowctl watch --all --timestamps"},
  };
}

cli::CommandDescription DescribeAnswer() {
  return {
      .name = "answer",
      .arguments = "METHOD ID...",
      .summary =
          "answers the host's questions about the windows, until "
          "interrupted",
      .details = absl::StrCat(
          "METHOD is of the kind 'callback stream'; 'methods' lists them. "
          "Answers are for OnCloseWindow {\"allowed\": true}, for "
          "OnCanExecuteCommand the same, for OnShowContextMenu {\"handled\": "
          "true} or {\"omittedCommandIds\": [1, 2]}.\n\n",
          rpcctl::AnswerDetails()),
      .flags = rpcctl::AnswerFlags(),
      .examples = {"windowctl answer OnCloseWindow 1 --with '{\"allowed\": "
                   "false}'"},
  };
}

cli::CommandDescription DescribeCall() {
  cli::CommandDescription call = rpcctl::DescribeCall();
  call.examples = {
      "windowctl call Maximize '{\"value\": 1}'",
      "windowctl call SetTitle '{\"browserId\": {\"value\": 1}, \"title\": "
      "\"Inbox\"}'",
      "windowctl call SetTitle browser_id.value=1 title=Inbox",
      "windowctl call SetTitle @title.json"};
  return call;
}

cli::CommandDescription DescribeDescribe() {
  cli::CommandDescription describe = rpcctl::DescribeDescribe();
  describe.examples = {"windowctl describe SetBounds"};
  return describe;
}

cli::CommandDescription DescribeStatus() {
  cli::CommandDescription status = rpcctl::DescribeStatus();
  status.examples = {"windowctl status --json | jq .connections"};
  return status;
}

}  // namespace

cli::ProgramDescription DescribeWindowctl() {
  return {
      .name = "windowctl",
      .summary = "drives the windows of a running host, such as window_host",
      .commands = {DescribeList(),
                   DescribeOpen(),
                   DescribeWatch(),
                   DescribeAnswer(),
                   {.name = "methods",
                    .summary = "lists all methods of the service",
                    .details =
                        "One a line, each with its request, its response and "
                        "its kind: unary, event stream or callback stream."},
                   DescribeDescribe(),
                   DescribeCall(),
                   DescribeStatus()},
      .more_commands = {{"Methods of the service that is about windows, each "
                         "as a command",
                         DescribeMethodCommands()}},
      .flags = {{"socket", "PATH",
                 "where the host listens; default: "
                 "${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock"},
                rpcctl::TimeoutFlag(),
                cli::HelpFlag(),
                cli::VersionFlag()},
      .examples = {"windowctl list", "windowctl maximize 1",
                   "windowctl set-title 1 title=Inbox",
                   "windowctl set-bounds 1 bounds.x=0 bounds.width=800"},
      .exit_statuses = rpcctl::ExitStatuses(),
  };
}

}  // namespace windowctl
