#include "tools/cli/completion.h"

#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "absl/strings/str_replace.h"
#include "absl/strings/str_split.h"

namespace cli {
namespace {

std::vector<CommandDescription> AllCommands(const ProgramDescription& program) {
  std::vector<CommandDescription> commands = program.commands;
  for (const CommandGroup& group : program.more_commands) {
    commands.insert(commands.end(), group.commands.begin(),
                    group.commands.end());
  }
  return commands;
}

// Those that every command takes.
std::vector<FlagDescription> CommonFlags(const ProgramDescription& program) {
  std::vector<FlagDescription> flags = program.flags;
  for (const FlagGroup& group : program.more_flags)
    flags.insert(flags.end(), group.flags.begin(), group.flags.end());
  return flags;
}

bool TakesFile(const FlagDescription& flag) {
  return flag.value == "PATH" || flag.value == "FILE";
}

// The beginning, as long as a shell has room for.
std::string_view Gist(std::string_view text) {
  const std::pair<std::string_view, std::string_view> parts =
      absl::StrSplit(text, absl::MaxSplits(absl::ByAnyChar(";\n"), 1));
  return parts.first;
}

// "--socket", and "-h" where there is that.
std::vector<std::string> Spellings(const FlagDescription& flag) {
  std::vector<std::string> spellings = {absl::StrCat("--", flag.name)};
  if (flag.name == HelpFlag().name)
    spellings.emplace_back("-h");
  return spellings;
}

// What precedes the word that is being typed, to choose by in bash.
struct ValueFlags {
  std::set<std::string> files;
  std::set<std::string> others;
};

void AddValueFlags(const std::vector<FlagDescription>& flags,
                   ValueFlags& value_flags) {
  for (const FlagDescription& flag : flags) {
    if (!flag.value.empty()) {
      (TakesFile(flag) ? value_flags.files : value_flags.others)
          .insert(absl::StrCat("--", flag.name));
    }
  }
}

std::string Words(const std::vector<FlagDescription>& flags) {
  std::string words;
  for (const FlagDescription& flag : flags)
    absl::StrAppend(&words, " ", absl::StrJoin(Spellings(flag), " "));
  return words;
}

// One arm of a case in bash, or nothing.
std::string Arm(const std::set<std::string>& patterns, std::string_view code) {
  return patterns.empty() ? ""
                          : absl::StrCat("    ", absl::StrJoin(patterns, " | "),
                                         ") ", code, " ;;\n");
}

std::string QuoteForZsh(std::string_view text) {
  return absl::StrReplaceAll(text, {{"'", "'\\''"},
                                    {"\\", "\\\\"},
                                    {":", "\\:"},
                                    {"[", "\\["},
                                    {"]", "\\]"}});
}

// The specifications of _arguments, one a line.
std::string ZshFlags(const std::vector<FlagDescription>& flags,
                     std::string_view indent) {
  std::string text;
  for (const FlagDescription& flag : flags) {
    std::string value;
    std::string_view sign;
    if (!flag.value.empty()) {
      value = absl::StrCat(":", QuoteForZsh(flag.value), ":",
                           TakesFile(flag) ? "_files" : " ");
      // The value may stand behind a sign, or be the next word.
      sign = "=";
    }
    for (const std::string& spelling : Spellings(flag)) {
      absl::StrAppend(&text, indent, "'", spelling, sign, "[",
                      QuoteForZsh(Gist(flag.text)), "]", value, "' \\\n");
    }
  }
  return text;
}

std::string QuoteForFish(std::string_view text) {
  return absl::StrCat(
      "'", absl::StrReplaceAll(text, {{"\\", "\\\\"}, {"'", "\\'"}}), "'");
}

std::string FishFlags(std::string_view complete,
                      const std::vector<FlagDescription>& flags) {
  std::string text;
  for (const FlagDescription& flag : flags) {
    absl::StrAppend(&text, complete,
                    flag.name == HelpFlag().name ? " -s h" : "", " -l ",
                    flag.name);
    if (!flag.value.empty())
      absl::StrAppend(&text, TakesFile(flag) ? " -r -F" : " -x");
    absl::StrAppend(&text, " -d ", QuoteForFish(Gist(flag.text)), "\n");
  }
  return text;
}

}  // namespace

std::string BashCompletion(const ProgramDescription& program) {
  const std::vector<CommandDescription> commands = AllCommands(program);
  ValueFlags value_flags;
  AddValueFlags(CommonFlags(program), value_flags);
  std::string arms;
  std::string names;
  for (const CommandDescription& command : commands) {
    AddValueFlags(command.flags, value_flags);
    absl::StrAppend(&names, " ", command.name);
    if (!command.flags.empty()) {
      absl::StrAppend(&arms, "    ", command.name, ") words+='",
                      Words(command.flags), "' ;;\n");
    }
  }
  std::set<std::string> with_value = value_flags.files;
  with_value.insert(value_flags.others.begin(), value_flags.others.end());

  return absl::StrCat(
      "# Completion of ", program.name,
      " for bash.\n"
      "_",
      program.name,
      "() {\n"
      "  local word=${COMP_WORDS[COMP_CWORD]}\n"
      "  local flag=${COMP_WORDS[COMP_CWORD - 1]}\n"
      "  local i command= words='",
      Words(CommonFlags(program)),
      "'\n"
      "  # Of --flag=value bash makes three words.\n"
      "  [[ $word == = ]] && word=\n"
      "  [[ $flag == = ]] && flag=${COMP_WORDS[COMP_CWORD - 2]}\n"
      "  case $flag in\n",
      Arm(value_flags.files,
          "compopt -o filenames; "
          "mapfile -t COMPREPLY < <(compgen -f -- \"$word\"); return"),
      Arm(value_flags.others, "COMPREPLY=(); return"),
      "  esac\n"
      "  for ((i = 1; i < COMP_CWORD; ++i)); do\n"
      "    case ${COMP_WORDS[i]} in\n",
      Arm(with_value, "[[ ${COMP_WORDS[i + 1]} == = ]] && ((++i)); ((++i))"),
      "    -*) ;;\n"
      "    *) command=${COMP_WORDS[i]}; break ;;\n"
      "    esac\n"
      "  done\n"
      "  case $command in\n"
      "    '') words+='",
      names, "' ;;\n", arms,
      "  esac\n"
      "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
      "}\n"
      "complete -F _",
      program.name, " ", program.name, "\n");
}

std::string ZshCompletion(const ProgramDescription& program) {
  const std::vector<FlagDescription> common = CommonFlags(program);
  const std::vector<CommandDescription> commands = AllCommands(program);
  const std::string head = absl::StrCat("#compdef ", program.name, "\n");
  if (commands.empty()) {
    return absl::StrCat(head, "_arguments -s \\\n", ZshFlags(common, "  "),
                        "  && return\n");
  }
  std::string names;
  std::string arms;
  for (const CommandDescription& command : commands) {
    absl::StrAppend(&names, "    '", command.name, ":",
                    QuoteForZsh(Gist(command.summary)), "'\n");
    if (!command.flags.empty()) {
      absl::StrAppend(&arms, "    ", command.name, ")\n      _arguments \\\n",
                      ZshFlags(command.flags, "        "),
                      "        $common '*:argument:()' ;;\n");
    }
  }
  return absl::StrCat(
      head,
      "local curcontext=$curcontext state line\n"
      "local -a names common\n"
      "names=(\n",
      names,
      ")\n"
      "common=(\n",
      absl::StrReplaceAll(ZshFlags(common, "  "), {{" \\\n", "\n"}}),
      ")\n"
      "_arguments -C $common '1: :->name' '*:: :->rest'\n"
      "case $state in\n"
      "  name) _describe command names ;;\n"
      "  rest)\n"
      "    case $line[1] in\n",
      arms,
      "    *) _arguments $common '*:argument:()' ;;\n"
      "    esac ;;\n"
      "esac\n");
}

std::string FishCompletion(const ProgramDescription& program) {
  const std::string complete = absl::StrCat("complete -c ", program.name);
  std::string text =
      absl::StrCat("# Completion of ", program.name, " for fish.\n", complete,
                   " -f\n", FishFlags(complete, CommonFlags(program)));
  for (const CommandDescription& command : AllCommands(program)) {
    absl::StrAppend(
        &text, complete, " -n __fish_use_subcommand -a ", command.name, " -d ",
        QuoteForFish(Gist(command.summary)), "\n",
        FishFlags(absl::StrCat(complete, " -n '__fish_seen_subcommand_from ",
                               command.name, "'"),
                  command.flags));
  }
  return text;
}

}  // namespace cli
