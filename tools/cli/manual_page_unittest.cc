#include "tools/cli/manual_page.h"

#include <gtest/gtest.h>

#include "absl/strings/str_cat.h"

namespace cli {
namespace {

TEST(ManualPage, HasASectionForEachPartOfTheDescription) {
  const ProgramDescription program = {
      .name = "gate",
      .summary = "opens gates",
      .commands = {{.name = "open",
                    .arguments = "GATE...",
                    .summary = "opens gates",
                    .details = "Each opens.\n\nOne after the other.",
                    .flags = {{"wide", "", "all the way"}},
                    .examples = {"gate open north"}}},
      .more_commands = {{"More commands", {{.name = "shut", .summary = "s"}}}},
      .flags = {{"socket", "PATH", "where the keeper listens"}, HelpFlag()},
      .more_flags = {{"The 'limits'", {{"max-gates", "N", "how many"}}}},
      .details = "It needs a keeper.",
      .examples = {"gate open"},
      .exit_statuses = {{"0", "success"}},
  };
  EXPECT_EQ(ManualPage(program),
            absl::StrCat(".TH GATE 1 \"\" \"torvane ", Version(),
                         "\" \"User Commands\"\n",
                         R"(.SH NAME
gate \- opens gates
.SH SYNOPSIS
\fBgate\fR [FLAG...] COMMAND [ARGUMENT...]
.SH DESCRIPTION
.PP
It needs a keeper.
.SH COMMANDS
.TP
\fBopen\fR GATE...
Opens gates.
.IP
Each opens.
.IP
One after the other.
.RS
.TP
\fB\-\-wide\fR
All the way.
.RE
.IP
.nf
gate open north
.fi
.SH MORE COMMANDS
.TP
\fBshut\fR
S.
.SH FLAGS
.TP
\fB\-\-socket\fR PATH
Where the keeper listens.
.TP
\fB\-h, \-\-help\fR
Prints this.
.SH THE \(aqLIMITS\(aq
.TP
\fB\-\-max\-gates\fR N
How many.
.SH EXAMPLES
.nf
gate open
.fi
.SH EXIT STATUS
.TP
\fB0\fR
Success.
)"));
}

TEST(ManualPage, KeepsCharactersThatManWouldTakeForSomethingElse) {
  const std::string page = ManualPage(
      {.name = "gate",
       .summary = "s",
       .details = ".hidden starts with a dot\n  'quoted' \\ --x\n'also",
       .examples = {"gate open '{\"value\": 1}' ~ ^ `"}});
  EXPECT_NE(page.find("\n\\&.hidden starts with a dot\n"), std::string::npos);
  EXPECT_NE(page.find("\n.nf\n  \\(aqquoted\\(aq \\e \\-\\-x\n.fi\n"),
            std::string::npos);
  EXPECT_NE(page.find("\n\\(aqalso\n"), std::string::npos);
  EXPECT_NE(page.find("\ngate open \\(aq{\"value\": 1}\\(aq \\(ti \\(ha \\(ga"),
            std::string::npos);
}

}  // namespace
}  // namespace cli
