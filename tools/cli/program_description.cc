#include "tools/cli/program_description.h"

#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "tools/cli/text_layout.h"

namespace cli {
namespace {

std::string Section(std::string_view heading, const std::vector<Row>& rows) {
  return rows.empty() ? "" : absl::StrCat("\n", heading, ":\n", Columns(rows));
}

std::string Paragraphs(std::string_view text) {
  return text.empty()
             ? ""
             : absl::StrCat("\n", absl::StrJoin(Wrap(text, kLineWidth), "\n"),
                            "\n");
}

std::string Examples(const std::vector<std::string>& examples) {
  return examples.empty() ? ""
                          : absl::StrCat("\nExamples:\n  ",
                                         absl::StrJoin(examples, "\n  "), "\n");
}

// The words with blanks between those that are not empty.
std::string Words(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!word.empty())
      absl::StrAppend(&text, text.empty() ? "" : " ", word);
  }
  return text;
}

std::vector<Row> Rows(const std::vector<FlagDescription>& flags) {
  std::vector<Row> rows;
  rows.reserve(flags.size());
  for (const FlagDescription& flag : flags) {
    rows.push_back({Words({flag.name == "help" ? "-h," : "",
                           absl::StrCat("--", flag.name), flag.value}),
                    flag.text});
  }
  return rows;
}

std::vector<Row> Rows(const std::vector<CommandDescription>& commands) {
  std::vector<Row> rows;
  rows.reserve(commands.size());
  for (const CommandDescription& command : commands)
    rows.push_back({Words({command.name, command.arguments}), command.summary});
  return rows;
}

std::string ExitStatuses(const std::vector<ExitStatus>& statuses) {
  if (statuses.empty())
    return "";
  return Paragraphs(absl::StrCat(
      "Exit status: ",
      absl::StrJoin(statuses, ", ",
                    [](std::string* out, const ExitStatus& status) {
                      absl::StrAppend(out, status.status, " ", status.meaning);
                    }),
      "."));
}

}  // namespace

FlagDescription HelpFlag() {
  return {"help", "", "prints this"};
}

FlagDescription VersionFlag() {
  return {"version", "", "prints the version"};
}

std::string FlagTable(const std::vector<FlagDescription>& flags) {
  return Columns(Rows(flags));
}

std::string Help(const ProgramDescription& program) {
  const bool has_commands = !program.commands.empty();
  std::string help = absl::StrCat(
      program.name, ": ", program.summary, ".\n\nUsage: ",
      Words({program.name, "[FLAG...]",
             has_commands ? "COMMAND [ARGUMENT...]" : program.arguments}),
      "\n");
  absl::StrAppend(&help, Section("Commands", Rows(program.commands)));
  for (const CommandGroup& group : program.more_commands)
    absl::StrAppend(&help, Section(group.heading, Rows(group.commands)));
  if (has_commands) {
    absl::StrAppend(&help, "\n'", program.name,
                    " COMMAND --help' says more about a command.\n");
  }
  absl::StrAppend(&help, Section("Flags", Rows(program.flags)));
  for (const FlagGroup& group : program.more_flags)
    absl::StrAppend(&help, Section(group.heading, Rows(group.flags)));
  absl::StrAppend(&help, Paragraphs(program.details),
                  Examples(program.examples),
                  ExitStatuses(program.exit_statuses));
  return help;
}

std::string Help(const ProgramDescription& program,
                 const CommandDescription& command) {
  return absl::StrCat(
      program.name, " ", command.name, ": ", command.summary, ".\n\nUsage: ",
      Words({program.name, "[FLAG...]", command.name, command.arguments}), "\n",
      Paragraphs(command.details), Section("Flags", Rows(command.flags)),
      Section("Flags of all commands", Rows(program.flags)),
      Examples(command.examples));
}

std::string VersionLine(const ProgramDescription& program) {
  return absl::StrCat(program.name, " ", Version(), "\n");
}

}  // namespace cli
