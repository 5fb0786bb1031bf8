#include "tools/cli/program_description.h"

#include <string>

#include "absl/strings/str_split.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

CommandDescription Watch() {
  return {.name = "watch",
          .arguments = "ID...",
          .summary = "prints events",
          .details = "It goes on until it is interrupted.",
          .flags = {{"with", "JSON", "the same for all"}},
          .examples = {"tool watch 1"}};
}

ProgramDescription Tool() {
  return {
      .name = "tool",
      .summary = "does things",
      .commands = {Watch(), {.name = "status", .summary = "says how it is"}},
      .flags = {{"socket", "PATH", "where it listens"}, HelpFlag()},
      .more_flags = {{"Limits", {{"max-things", "N", "how many"}}}},
      .details = "Some more.",
      .examples = {"tool status"},
      .exit_statuses = {{"0", "success"}, {"1", "failure"}}};
}

TEST(ProgramDescriptionTest, HelpOfAProgramSaysAllOfIt) {
  EXPECT_EQ(R"(tool: does things.

Usage: tool [FLAG...] COMMAND [ARGUMENT...]

Commands:
  watch ID...  prints events
  status       says how it is

'tool COMMAND --help' says more about a command.

Flags:
  --socket PATH  where it listens
  -h, --help     prints this

Limits:
  --max-things N  how many

Some more.

Examples:
  tool status

Exit status: 0 success, 1 failure.
)",
            Help(Tool()));
}

TEST(ProgramDescriptionTest, HelpOfACommandSaysThatOneOnly) {
  EXPECT_EQ(R"(tool watch: prints events.

Usage: tool [FLAG...] watch ID...

It goes on until it is interrupted.

Flags:
  --with JSON  the same for all

Flags of all commands:
  --socket PATH  where it listens
  -h, --help     prints this

Examples:
  tool watch 1
)",
            Help(Tool(), Watch()));
}

TEST(ProgramDescriptionTest, ProgramWithoutCommandsHasArguments) {
  ProgramDescription program = Tool();
  program.commands.clear();
  program.arguments = "SECONDS";
  const std::string help = Help(program);
  EXPECT_THAT(help, HasSubstr("Usage: tool [FLAG...] SECONDS\n"));
  EXPECT_THAT(help, Not(HasSubstr("COMMAND")));
}

TEST(ProgramDescriptionTest, GroupsOfCommandsFollowUnderTheirHeadings) {
  ProgramDescription program = Tool();
  program.more_commands = {
      {"Methods", {{.name = "show", .arguments = "ID", .summary = "shows"}}}};
  EXPECT_THAT(Help(program), HasSubstr("says how it is\n"
                                       "\nMethods:\n  show ID  shows\n\n'"));
}

TEST(ProgramDescriptionTest, LongTextsAreBrokenIntoLinesInTheirColumn) {
  ProgramDescription program = Tool();
  std::string text = "words";
  for (int i = 0; i < 40; ++i)
    text += " and words";
  program.flags[0].text = text;
  program.details = text;
  const std::string help = Help(program);
  for (const std::string& line :
       std::vector<std::string>(absl::StrSplit(help, '\n'))) {
    EXPECT_GE(80u, line.size()) << line;
    EXPECT_THAT(line, Not(MatchesRegex(".* ")));
  }
  EXPECT_THAT(help, HasSubstr("\n                 words and words and"));
}

TEST(ProgramDescriptionTest, VersionIsThatOfTheProject) {
  EXPECT_THAT(std::string(Version()), MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
  EXPECT_EQ("tool " + std::string(Version()) + "\n", VersionLine(Tool()));
}

}  // namespace
}  // namespace cli
