#include "tools/cli/manual_page.h"

#include <string_view>
#include <vector>

#include "absl/strings/ascii.h"
#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_replace.h"
#include "absl/strings/str_split.h"

namespace cli {
namespace {

// As it is to be read: man(7) would take some characters for requests, and
// print others as typographic ones.
std::string Escape(std::string_view text) {
  std::string escaped = absl::StrReplaceAll(text, {{"\\", "\\e"},
                                                   {"-", "\\-"},
                                                   {"'", "\\(aq"},
                                                   {"`", "\\(ga"},
                                                   {"^", "\\(ha"},
                                                   {"~", "\\(ti"}});
  return absl::StartsWith(escaped, ".") ? "\\&" + escaped : escaped;
}

std::string Line(std::string_view text) {
  return absl::StrCat(Escape(text), "\n");
}

// A text that begins in lower case and has no full stop.
std::string Sentence(std::string_view text) {
  std::string sentence(text);
  if (!sentence.empty())
    sentence[0] = absl::ascii_toupper(static_cast<unsigned char>(sentence[0]));
  return Line(absl::StrCat(sentence, "."));
}

std::string Section(std::string_view heading) {
  return absl::StrCat(".SH ", Escape(absl::AsciiStrToUpper(heading)), "\n");
}

// Lines that are not to be broken.
std::string Verbatim(const std::vector<std::string>& lines) {
  std::string text = ".nf\n";
  for (const std::string& line : lines)
    absl::StrAppend(&text, Line(line));
  return text + ".fi\n";
}

// `paragraph` is the request that begins one.
std::string Prose(std::string_view text, std::string_view paragraph) {
  std::string page;
  bool begins = true;
  for (std::string_view line : absl::StrSplit(text, '\n')) {
    if (line.empty()) {
      begins = true;
      continue;
    }
    if (begins)
      absl::StrAppend(&page, paragraph, "\n");
    begins = false;
    absl::StrAppend(&page, absl::StartsWith(line, "  ")
                               ? Verbatim({std::string(line)})
                               : Line(line));
  }
  return page;
}

std::string Term(std::string_view bold, std::string_view plain) {
  return absl::StrCat(".TP\n\\fB", Escape(bold), "\\fR",
                      plain.empty() ? "" : " ", Escape(plain), "\n");
}

std::string Flags(const std::vector<FlagDescription>& flags) {
  std::string page;
  for (const FlagDescription& flag : flags) {
    const bool is_help = flag.name == HelpFlag().name;
    absl::StrAppend(
        &page,
        Term(absl::StrCat(is_help ? "-h, " : "", "--", flag.name), flag.value),
        Sentence(flag.text));
  }
  return page;
}

std::string Command(const CommandDescription& command) {
  std::string page =
      absl::StrCat(Term(command.name, command.arguments),
                   Sentence(command.summary), Prose(command.details, ".IP"));
  if (!command.flags.empty())
    absl::StrAppend(&page, ".RS\n", Flags(command.flags), ".RE\n");
  if (!command.examples.empty())
    absl::StrAppend(&page, ".IP\n", Verbatim(command.examples));
  return page;
}

std::string Commands(std::string_view heading,
                     const std::vector<CommandDescription>& commands) {
  if (commands.empty())
    return "";
  std::string page = Section(heading);
  for (const CommandDescription& command : commands)
    absl::StrAppend(&page, Command(command));
  return page;
}

std::string Examples(const std::vector<std::string>& examples) {
  return examples.empty()
             ? ""
             : absl::StrCat(Section("Examples"), Verbatim(examples));
}

std::string ExitStatuses(const std::vector<ExitStatus>& statuses) {
  if (statuses.empty())
    return "";
  std::string page = Section("Exit status");
  for (const ExitStatus& status : statuses)
    absl::StrAppend(&page, Term(status.status, ""), Sentence(status.meaning));
  return page;
}

}  // namespace

std::string ManualPage(const ProgramDescription& program) {
  const bool has_commands = !program.commands.empty();
  std::string page = absl::StrCat(
      ".TH ", Escape(absl::AsciiStrToUpper(program.name)), " 1 \"\" \"torvane ",
      Escape(Version()), "\" \"User Commands\"\n", Section("Name"),
      Escape(program.name), " \\- ", Line(program.summary), Section("Synopsis"),
      "\\fB", Escape(program.name), "\\fR [FLAG...] ",
      Line(has_commands ? "COMMAND [ARGUMENT...]" : program.arguments));
  if (!program.details.empty())
    absl::StrAppend(&page, Section("Description"),
                    Prose(program.details, ".PP"));
  absl::StrAppend(&page, Commands("Commands", program.commands));
  for (const CommandGroup& group : program.more_commands)
    absl::StrAppend(&page, Commands(group.heading, group.commands));
  absl::StrAppend(&page, Section("Flags"), Flags(program.flags));
  for (const FlagGroup& group : program.more_flags)
    absl::StrAppend(&page, Section(group.heading), Flags(group.flags));
  return absl::StrCat(page, Examples(program.examples),
                      ExitStatuses(program.exit_statuses));
}

}  // namespace cli
