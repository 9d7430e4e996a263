#include "cli/Completions.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "cli/OptionChecks.h"

namespace brimble::cli {
namespace {

// The completions of bash and zsh share their logic, and fish's follows it: walk the words
// typed so far to find the command they name, skipping the value after each option that takes
// one, then offer what that command takes next.

// `text` in single quotes for bash, zsh and any POSIX shell.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

// `text` in single quotes for fish, where a backslash escapes a quote or a backslash.
std::string fishQuoted(const std::string& text) {
  std::string quoted = "'";
  for (char c : text) {
    if (c == '\'' || c == '\\') {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted + "'";
}

// A help text on one line, for the shells that show it beside a name.
std::string oneLine(const std::string& text) {
  std::string line;
  for (char c : text) {
    line += c == '\n' || c == '\t' ? ' ' : c;
  }
  return line;
}

std::string joined(const std::vector<std::string>& words, const std::string& separator = " ") {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : separator) + word;
  }
  return text;
}

// The values of a command's positional arguments: the first that says what it takes.
OptionValues positionalValues(const CommandOutline& command) {
  for (const OptionOutline& positional : command.positionals) {
    if (positional.values.kind != OptionValues::Kind::anything) {
      return positional.values;
    }
  }
  return {};
}

// One arm of a shell `case`: its patterns ('brimble run -o'|'brimble run --output') and what
// runs for them.
struct CaseArm {
  std::vector<std::string> keys;
  std::string action;
};

std::string caseStatement(const std::string& subject, const std::vector<CaseArm>& arms,
                          const std::string& indent) {
  std::string text = indent + "case \"" + subject + "\" in\n";
  for (const CaseArm& arm : arms) {
    if (arm.keys.empty()) {
      continue;
    }
    std::vector<std::string> patterns;
    for (const std::string& key : arm.keys) {
      patterns.push_back(shellQuoted(key));
    }
    text += indent + "  " + joined(patterns, "|") + ") " + arm.action + " ;;\n";
  }
  return text + indent + "esac\n";
}

// What bash and zsh do for one kind of value; `words` are already quoted.
struct ShellActions {
  std::string (*words)(const std::vector<std::string>& words);
  std::string files;
  std::string scripts;
};

std::string valueAction(const OptionValues& values, const ShellActions& actions) {
  switch (values.kind) {
    case OptionValues::Kind::words:
      return actions.words(values.words);
    case OptionValues::Kind::files:
      return actions.files;
    case OptionValues::Kind::scripts:
      return actions.scripts;
    case OptionValues::Kind::anything:
      break;
  }
  return ":";
}

// The walk both shells share, as the body of a `for` over the words before the current one.
std::string walkArms(const CommandOutline& root, const std::string& indent) {
  CaseArm commands{{}, "command=\"$command $word\""};
  CaseArm valued{{}, "expects=$word"};
  for (const CommandOutline* command : allCommands(root)) {
    for (const CommandOutline& sub : command->subcommands) {
      commands.keys.push_back(sub.fullName());
    }
    for (const OptionOutline& option : command->options) {
      if (!option.valueName.empty()) {
        for (const std::string& name : option.names) {
          valued.keys.push_back(command->fullName() + " " + name);
        }
      }
    }
  }
  return caseStatement("$command $word", {commands, valued}, indent);
}

std::string valueArms(const CommandOutline& root, const ShellActions& actions,
                      const std::string& indent) {
  std::vector<CaseArm> arms;
  for (const CommandOutline* command : allCommands(root)) {
    for (const OptionOutline& option : command->options) {
      if (option.valueName.empty() || option.values.kind == OptionValues::Kind::anything) {
        continue;
      }
      CaseArm arm{{}, valueAction(option.values, actions)};
      for (const std::string& name : option.names) {
        arm.keys.push_back(command->fullName() + " " + name);
      }
      arms.push_back(std::move(arm));
    }
  }
  return caseStatement("$command $expects", arms, indent);
}

std::string bashWords(const std::vector<std::string>& words) {
  return "_brimble_words " + shellQuoted(joined(words));
}

// The rest of the loop over the words before the cursor, and what follows it, which bash and zsh
// read alike: skip options' values on the way to the command the words name, then offer the
// values of an option, the command's options, or what comes after the command. `current` is the
// word being completed; `done` ends the function.
std::string walkThenOffer(const CommandOutline& root, const ShellActions& actions,
                          const std::vector<CaseArm>& optionArms,
                          const std::vector<CaseArm>& nextArms, const std::string& current,
                          const std::string& done) {
  return "    # An option's value, unless the option takes one only if given (record --display).\n"
         "    if [[ -n $expects && $word != -* ]]; then\n"
         "      expects=\n"
         "      continue\n"
         "    fi\n"
         "    expects=\n" +
         walkArms(root, "    ") +
         "  done\n"
         "  if [[ -n $expects ]]; then\n" +
         valueArms(root, actions, "    ") + "    " + done + "\n" +
         "  fi\n"
         "  if [[ " +
         current + " == -* ]]; then\n" + caseStatement("$command", optionArms, "    ") + "    " +
         done + "\n" + "  fi\n" + caseStatement("$command", nextArms, "  ");
}

std::string bashScript(const CommandOutline& root) {
  const ShellActions actions{bashWords, "_brimble_files", "_brimble_scripts"};
  std::vector<CaseArm> optionArms;
  std::vector<CaseArm> nextArms;
  for (const CommandOutline* command : allCommands(root)) {
    std::vector<std::string> names;
    for (const OptionOutline& option : command->options) {
      names.insert(names.end(), option.names.begin(), option.names.end());
    }
    optionArms.push_back({{command->fullName()}, bashWords(names)});
    if (!command->subcommands.empty()) {
      std::vector<std::string> subs;
      for (const CommandOutline& sub : command->subcommands) {
        subs.push_back(sub.path.back());
      }
      nextArms.push_back({{command->fullName()}, bashWords(subs)});
    } else if (const OptionValues values = positionalValues(*command);
               values.kind != OptionValues::Kind::anything) {
      nextArms.push_back({{command->fullName()}, valueAction(values, actions)});
    }
  }
  return "# bash completion for brimble, made by `brimble completion bash` from its own commands.\n"
         "\n"
         "_brimble_words() { mapfile -t COMPREPLY < <(compgen -W \"$1\" -- \"$cur\"); }\n"
         "_brimble_files() {\n"
         "  compopt -o filenames 2>/dev/null\n"
         "  mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
         "}\n"
         "_brimble_scripts() {\n"
         "  compopt -o filenames 2>/dev/null\n"
         "  mapfile -t COMPREPLY < <(compgen -d -- \"$cur\"; compgen -f -X '!*.brim' -- \"$cur\"\n"
         "    compgen -f -X '!*.tape' -- \"$cur\")\n"
         "}\n"
         "\n"
         "_brimble() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} command=brimble expects= word i\n"
         "  COMPREPLY=()\n"
         "  # bash splits --format=gif into three words; the = only joins the option to its "
         "value.\n"
         "  [[ $cur == = ]] && cur=\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    word=${COMP_WORDS[i]}\n"
         "    [[ $word == = ]] && continue\n" +
         walkThenOffer(root, actions, optionArms, nextArms, "$cur", "return 0") +
         "}\n"
         "\n"
         "complete -F _brimble brimble\n";
}

std::string zshWords(const std::vector<std::string>& words) {
  std::string action = "compadd --";
  for (const std::string& word : words) {
    action += " " + shellQuoted(word);
  }
  return action;
}

// "name:help" entries for _describe, whose names must escape their colons.
std::string zshDescribed(const std::vector<std::pair<std::string, std::string>>& entries,
                         const std::string& tag) {
  std::string list;
  for (const auto& [name, help] : entries) {
    std::string escaped;
    for (char c : name) {
      escaped += c == ':' ? std::string("\\:") : std::string(1, c);
    }
    list += " " + shellQuoted(escaped + ":" + oneLine(help));
  }
  return "described=(" + list + "); _describe -t " + tag + "s " + tag + " described";
}

std::string zshScript(const CommandOutline& root) {
  const ShellActions actions{zshWords, "_files", "_files -g '*.(brim|tape)'"};
  std::vector<CaseArm> optionArms;
  std::vector<CaseArm> nextArms;
  for (const CommandOutline* command : allCommands(root)) {
    std::vector<std::pair<std::string, std::string>> options;
    for (const OptionOutline& option : command->options) {
      for (const std::string& name : option.names) {
        options.emplace_back(name, option.help);
      }
    }
    optionArms.push_back({{command->fullName()}, zshDescribed(options, "option")});
    if (!command->subcommands.empty()) {
      std::vector<std::pair<std::string, std::string>> subs;
      for (const CommandOutline& sub : command->subcommands) {
        subs.emplace_back(sub.path.back(), sub.description);
      }
      nextArms.push_back({{command->fullName()}, zshDescribed(subs, "command")});
    } else if (const OptionValues values = positionalValues(*command);
               values.kind != OptionValues::Kind::anything) {
      nextArms.push_back({{command->fullName()}, valueAction(values, actions)});
    }
  }
  return "#compdef brimble\n"
         "# zsh completion for brimble, made by `brimble completion zsh` from its own commands.\n"
         "\n"
         "_brimble() {\n"
         "  local command=brimble expects= word i\n"
         "  local -a described\n"
         "  for ((i = 2; i < CURRENT; i++)); do\n"
         "    word=${words[i]}\n" +
         walkThenOffer(root, actions, optionArms, nextArms, "${words[CURRENT]}", "return") +
         "}\n"
         "\n"
         "if [[ ${zsh_eval_context[-1]} == loadautofunc ]]; then\n"
         "  _brimble \"$@\"\n"
         "else\n"
         "  compdef _brimble brimble\n"
         "fi\n";
}

std::string fishValueArguments(const OptionValues& values) {
  switch (values.kind) {
    case OptionValues::Kind::words:
      return " -x -a " + fishQuoted(joined(values.words));
    case OptionValues::Kind::files:
      return " -r -F";
    case OptionValues::Kind::scripts:
      return " -x -a '(__brimble_scripts)'";
    case OptionValues::Kind::anything:
      break;
  }
  return " -x";
}

std::string fishScript(const CommandOutline& root) {
  std::string commandList;
  std::string valuedList;
  std::string completions;
  for (const CommandOutline* command : allCommands(root)) {
    const std::string at = " -n " + fishQuoted("__brimble_at " + shellQuoted(command->fullName()));
    const OptionValues positional = positionalValues(*command);
    if (command->subcommands.empty() && positional.kind == OptionValues::Kind::files) {
      completions += "complete -c brimble" + at + " -F\n";
    } else {
      completions += "complete -c brimble" + at + " -f\n";
    }
    for (const CommandOutline& sub : command->subcommands) {
      commandList += " \\\n  " + fishQuoted(sub.fullName());
      completions += "complete -c brimble" + at + " -a " + fishQuoted(sub.path.back()) + " -d " +
                     fishQuoted(oneLine(sub.description)) + "\n";
    }
    if (command->subcommands.empty() && (positional.kind == OptionValues::Kind::words ||
                                         positional.kind == OptionValues::Kind::scripts)) {
      completions += "complete -c brimble" + at + fishValueArguments(positional) + "\n";
    }
    for (const OptionOutline& option : command->options) {
      std::string line = "complete -c brimble" + at;
      for (const std::string& name : option.names) {
        line += (name.starts_with("--") ? " -l " + fishQuoted(name.substr(2))
                                        : " -s " + fishQuoted(name.substr(1)));
        if (!option.valueName.empty()) {
          valuedList += " \\\n  " + fishQuoted(command->fullName() + " " + name);
        }
      }
      if (!option.valueName.empty()) {
        line += fishValueArguments(option.values);
      }
      completions += line + " -d " + fishQuoted(oneLine(option.help)) + "\n";
    }
  }
  return "# fish completion for brimble, made by `brimble completion fish` from its own commands.\n"
         "\n"
         "set -g __brimble_commands" +
         commandList +
         "\n"
         "set -g __brimble_valued_options" +
         valuedList +
         "\n"
         "\n"
         "# The command the words before the cursor name, skipping the value of each option.\n"
         "function __brimble_command\n"
         "    set -l words (commandline -opc)\n"
         "    set -e words[1]\n"
         "    set -l command brimble\n"
         "    set -l expects 0\n"
         "    for word in $words\n"
         "        if test $expects = 1; and not string match -q -- '-*' $word\n"
         "            set expects 0\n"
         "            continue\n"
         "        end\n"
         "        set expects 0\n"
         "        if contains -- \"$command $word\" $__brimble_commands\n"
         "            set command \"$command $word\"\n"
         "        else if contains -- \"$command $word\" $__brimble_valued_options\n"
         "            set expects 1\n"
         "        end\n"
         "    end\n"
         "    echo $command\n"
         "end\n"
         "\n"
         "function __brimble_at\n"
         "    test (__brimble_command) = \"$argv[1]\"\n"
         "end\n"
         "\n"
         "# Folders, and the .brim and .tape scripts.\n"
         "function __brimble_scripts\n"
         "    set -l typed (commandline -ct)\n"
         "    for file in $typed*\n"
         "        if test -d $file\n"
         "            echo $file/\n"
         "        else if string match -qr '\\.(brim|tape)$' -- $file\n"
         "            echo $file\n"
         "        end\n"
         "    end\n"
         "end\n"
         "\n" +
         completions;
}

}  // namespace

std::string completionScript(const CommandOutline& root, CompletionShell shell) {
  switch (shell) {
    case CompletionShell::bash:
      return bashScript(root);
    case CompletionShell::zsh:
      return zshScript(root);
    case CompletionShell::fish:
      return fishScript(root);
  }
  return {};
}

Command addCompletionCommand(CLI::App& app) {
  auto shell = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "completion",
      "Print the shell completion script for bash, zsh or fish, to install or source");
  command->add_option("shell", *shell, "bash, zsh or fish")
      ->check(oneOf("shell", {"bash", "zsh", "fish"}))
      ->required();
  CLI::App* root = &app;
  return {command, [shell, root] {
            const CompletionShell chosen = *shell == "zsh"    ? CompletionShell::zsh
                                           : *shell == "fish" ? CompletionShell::fish
                                                              : CompletionShell::bash;
            fmt::print("{}", completionScript(outlineOf(*root), chosen));
            return kExitSuccess;
          }};
}

}  // namespace brimble::cli
