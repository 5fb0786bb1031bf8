// What the shells make of it is tested by cmake/package/pages_test.py, with the
// programs' own descriptions.

#include "tools/cli/completion.h"

#include <gtest/gtest.h>

#include <string>

namespace cli {
namespace {

ProgramDescription Gate() {
  return {
      .name = "gate",
      .commands = {{.name = "open",
                    .summary = "opens gates; not at night",
                    .flags = {{"wide", "", "it's [all]: the way"},
                              {"log", "FILE", "where to write"},
                              {"for", "SECONDS", "how long"}}}},
      .more_commands = {{"More", {{.name = "shut", .summary = "shuts"}}}},
      .flags = {HelpFlag()},
  };
}

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(Completion, BashKnowsCommandsAndTheirFlags) {
  const std::string script = BashCompletion(Gate());
  EXPECT_TRUE(Has(script, "'') words+=' open shut' ;;"));
  EXPECT_TRUE(Has(script, "open) words+=' --wide --log --for' ;;"));
  EXPECT_TRUE(Has(script, "--log) compopt -o filenames; mapfile"));
  EXPECT_TRUE(Has(script, "--for) COMPREPLY=(); return ;;"));
  EXPECT_TRUE(Has(script, "--for | --log) [[ ${COMP_WORDS[i + 1]} == = ]]"));
  EXPECT_TRUE(Has(script, "complete -F _gate gate\n"));
}

TEST(Completion, ZshEscapesWhatItsSpecificationsMean) {
  const std::string script = ZshCompletion(Gate());
  EXPECT_EQ(script.find("#compdef gate\n"), 0u);
  EXPECT_TRUE(Has(script, "'--wide[it'\\''s \\[all\\]\\: the way]'"));
  EXPECT_TRUE(Has(script, "'--log=[where to write]:FILE:_files'"));
  EXPECT_TRUE(Has(script, "'--for=[how long]:SECONDS: '"));
  EXPECT_TRUE(Has(script, "    'open:opens gates'\n"));
}

TEST(Completion, FishOffersFlagsOfACommandOnlyAfterIt) {
  const std::string script = FishCompletion(Gate());
  EXPECT_TRUE(
      Has(script,
          "complete -c gate -n '__fish_seen_subcommand_from open' -l wide -d "
          "'it\\'s [all]: the way'\n"));
  EXPECT_TRUE(Has(script, "-l log -r -F -d 'where to write'\n"));
  EXPECT_TRUE(Has(script, "-l for -x -d 'how long'\n"));
  EXPECT_TRUE(Has(script, "complete -c gate -s h -l help -d"));
}

}  // namespace
}  // namespace cli
