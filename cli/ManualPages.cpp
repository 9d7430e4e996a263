#include "cli/ManualPages.h"

#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "Brimble/AppOptions.h"
#include "BrimbleCore/Scripting/ScriptCommandManifest.h"
#include "BrimbleCore/Scripting/ScriptSettings.h"
#include "BrimbleCore/Support/AtomicFile.h"
#include "BrimbleCore/Support/Version.h"
#include "cli/Completions.h"
#include "cli/OptionChecks.h"
#include "cli/ReferenceCommands.h"
#include "cli/Roff.h"

namespace brimble::cli {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kReadableByAll = 0644;

// The start every page shares: a title without a date, and no hyphenation or justification, so
// that option names stay whole and can be searched for.
std::string pageHeader(std::string_view title, int section, std::string_view name,
                       std::string_view summary) {
  return fmt::format(".TH {} {} \"\" {} \"Brimble Manual\"\n.nh\n.ad l\n.SH NAME\n{} \\- {}\n",
                     title, section, roffQuoted(fmt::format("Brimble {}", kVersion)),
                     roffText(name), roffText(summary));
}

// One term with its explanation.
std::string taggedParagraph(const std::string& term, std::string_view text) {
  return ".TP\n" + term + "\n" + roffText(text) + "\n";
}

std::string paragraph(std::string_view text) {
  return ".PP\n" + roffText(text) + "\n";
}

// Text laid out by hand (a table of forms in a footer), kept as written.
std::string preformatted(std::string_view text) {
  return ".PP\n.nf\n" + roffText(text) + "\n.fi\n";
}

std::string joinedWithCommas(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : ", ") + word;
  }
  return text;
}

std::string optionTerm(const OptionOutline& option, bool positional) {
  if (positional) {
    return roffItalic(option.names.front()) + (option.count < 0 ? "\\ ..." : "");
  }
  std::string term;
  for (const std::string& name : option.names) {
    term += (term.empty() ? "" : ", ") + roffBold(name);
  }
  if (!option.valueName.empty()) {
    term += " " + roffItalic(option.valueName);
  }
  return term;
}

std::string optionText(const OptionOutline& option) {
  std::string text = option.help;
  if (option.values.kind == OptionValues::Kind::words) {
    text += " [values: " + joinedWithCommas(option.values.words) + "]";
  }
  if (!option.defaultValue.empty()) {
    text += " [default: " + option.defaultValue + "]";
  }
  if (option.required) {
    text += " [required]";
  }
  return text;
}

std::string synopsisOf(const CommandOutline& command) {
  std::string line = roffBold(command.fullName());
  if (!command.options.empty()) {
    line += " [" + roffItalic("OPTIONS") + "]";
  }
  if (!command.subcommands.empty()) {
    line += " " + roffItalic("COMMAND");
  }
  for (const OptionOutline& positional : command.positionals) {
    const std::string name = optionTerm(positional, true);
    line += " " + (positional.required ? name : "[" + name + "]");
  }
  return line;
}

std::string commandSection(const CommandOutline& command) {
  std::string text = ".SS " + roffQuoted(command.fullName()) + "\n" + synopsisOf(command) +
                     "\n.PP\n" + roffText(command.description) + "\n";
  for (const OptionOutline& positional : command.positionals) {
    text += taggedParagraph(optionTerm(positional, true), optionText(positional));
  }
  for (const OptionOutline& option : command.options) {
    text += taggedParagraph(optionTerm(option, false), optionText(option));
  }
  if (!command.footer.empty()) {
    text += preformatted(command.footer);
  }
  for (const CommandOutline& sub : command.subcommands) {
    text += commandSection(sub);
  }
  return text;
}

const std::vector<std::pair<std::string, std::string>>& brimbleEnvironment() {
  static const std::vector<std::pair<std::string, std::string>> variables = {
      {"BRIMBLE_SCRIPT_DIR",
       "Where brimble run looks for a script given by name rather than as a file (default "
       "~/.brimble/scripts; a leading ~ is the home folder)."},
      {"BRIMBLE_UPDATE_FEED",
       "The release feed brimble update-check reads when --feed is not given."},
      {"BRIMBLE_HISTORY_FILE",
       "The index of captures, instead of $XDG_DATA_HOME/brimble/history.json."},
      {"XDG_STATE_HOME",
       "Holds brimble/, with the logs, crash reports, usage counts and the screen-cast "
       "permission token (default ~/.local/state)."},
      {"XDG_DATA_HOME", "Holds brimble/history.json (default ~/.local/share)."},
      {"DISPLAY, WAYLAND_DISPLAY, XDG_SESSION_TYPE",
       "The desktop session brimble records and drives; --headless uses an embedded X display "
       "instead."},
      {"XDG_RUNTIME_DIR, DBUS_SESSION_BUS_ADDRESS",
       "The session's sockets and bus, through which the desktop portals are reached on "
       "Wayland."},
      {"HOME", "The home folder, for the default folders above."},
      {"TMPDIR",
       "Where temporary files go, and a partial render when the output's folder "
       "cannot take it."},
      {"PATH",
       "Where the programs brimble starts are found (Xvfb, openbox, xterm, Chromium, "
       "tesseract)."},
  };
  return variables;
}

std::string brimblePage(const CommandOutline& root) {
  std::string page = pageHeader("BRIMBLE", 1, "brimble",
                                "turn screen activity into animated GIFs, WebP, APNG and MP4");
  page += ".SH SYNOPSIS\n" + synopsisOf(root) + " [" + roffItalic("ARGUMENTS") + "]\n";
  page += ".SH DESCRIPTION\n" + roffText(root.description) + "\n";
  page += paragraph(
      "brimble records the screen, a window or a region; runs demo scripts (see "
      "brimble-script(5)) that type into terminals, click and drive browser pages while they "
      "record; encodes frames; and serves its tools to AI assistants over MCP. Every command "
      "takes --help.");
  page += ".SH OPTIONS\n";
  for (const OptionOutline& option : root.options) {
    page += taggedParagraph(optionTerm(option, false), optionText(option));
  }
  page += ".SH COMMANDS\n";
  for (const CommandOutline& command : root.subcommands) {
    page += commandSection(command);
  }
  page += ".SH EXIT STATUS\n";
  const std::pair<int, std::string_view> statuses[] = {
      {kExitSuccess, "Success."},
      {kExitFailure,
       "The command failed: a script error (\"Line N: ...\"), a capture or an "
       "encode that failed, a check that did not pass."},
      {kExitUsage,
       "The command line is wrong, or names an output format brimble does not "
       "write; nothing was started."},
      {130, "Interrupted by Ctrl-C; what was recorded is kept where the command says."},
      {141, "The reader of standard output went away before the command finished writing."},
  };
  for (const auto& [status, meaning] : statuses) {
    page += taggedParagraph(roffBold(std::to_string(status)), meaning);
  }
  page += ".SH ENVIRONMENT\n";
  for (const auto& [variable, meaning] : brimbleEnvironment()) {
    page += taggedParagraph(roffBold(variable), meaning);
  }
  page += ".SH FILES\n";
  const std::pair<std::string_view, std::string_view> files[] = {
      {"~/.brimble/scripts/", "Scripts brimble run finds by name."},
      {"$XDG_STATE_HOME/brimble/logs/brimble.log",
       "What brimble printed on standard error and more, stamped with the time and the pid; "
       "at most three files of 1 MiB."},
      {"$XDG_STATE_HOME/brimble/crashes/", "A report of each crash."},
      {"$XDG_STATE_HOME/brimble/statistics.json",
       "The local usage counts brimble stats shows; statistics.off stops them."},
      {"$XDG_DATA_HOME/brimble/history.json", "The index of captures."},
  };
  for (const auto& [file, meaning] : files) {
    page += taggedParagraph(roffItalic(file), meaning);
  }
  page += ".SH SEE ALSO\n" + roffBold("brimble-app") + "(1), " + roffBold("brimble-script") +
          "(5), " + roffBold("xvfb-run") + "(1)\n";
  return page;
}

std::string appPage() {
  std::string page =
      pageHeader("BRIMBLE-APP", 1, "brimble-app", "record the screen to a GIF from the desktop");
  page += ".SH SYNOPSIS\n" + roffBold("brimble-app") + " [" + roffBold("--toggle") + "]\n";
  page += ".SH DESCRIPTION\n" + roffText(appOptions::kSummary) + "\n";
  page += paragraph(
      "A second brimble-app started in the same session shows the one already running and "
      "ends.");
  page += ".SH OPTIONS\n";
  for (const appOptions::AppOption& option : appOptions::kOptions) {
    page += taggedParagraph(roffBold(option.name), option.help);
  }
  page += ".SH ENVIRONMENT\n";
  page += taggedParagraph(roffBold("XDG_CONFIG_HOME"),
                          "Holds brimble/brimble.conf, the app's settings (default ~/.config).");
  page +=
      taggedParagraph(roffBold("XDG_STATE_HOME"),
                      "Holds brimble/, with the app's log, crash reports and usage counts (default "
                      "~/.local/state).");
  page += taggedParagraph(roffBold("WAYLAND_DISPLAY, DISPLAY"),
                          "The desktop session the app records and shows its windows on.");
  page += ".SH FILES\n";
  page += taggedParagraph(roffItalic("$XDG_CONFIG_HOME/brimble/brimble.conf"), "The settings.");
  page += taggedParagraph(roffItalic("$XDG_STATE_HOME/brimble/logs/brimble-app.log"),
                          "What the app printed on standard error and more.");
  page += ".SH SEE ALSO\n" + roffBold("brimble") + "(1), " + roffBold("brimble-script") + "(5)\n";
  return page;
}

// "type text [enter]", choices as "up|down".
std::string argumentsOf(const ScriptCommandInfo& command) {
  std::string text;
  for (const ScriptArgInfo& argument : command.args) {
    std::string shown;
    if (argument.choices) {
      std::string alternatives;
      for (const std::string& choice : *argument.choices) {
        alternatives += (alternatives.empty() ? "" : "|") + choice;
      }
      shown = roffBold(alternatives);
    } else {
      shown = roffItalic(argument.name);
    }
    text += " " + (argument.optional ? "[" + shown + "]" : shown);
  }
  return text;
}

std::string scriptPage() {
  std::string page = pageHeader("BRIMBLE-SCRIPT", 5, "brimble-script",
                                "the .brim demo script language of Brimble");
  page += ".SH SYNOPSIS\n" + roffBold("brimble run") + " " + roffItalic("script.brim") + "\n";
  page += ".SH DESCRIPTION\n";
  page += roffText(
              "A .brim script is a text file with one command on a line, which brimble run "
              "follows from the top: it opens windows and terminals, types, clicks, records "
              "and renders the animation the output setting names. brimble validate checks a "
              "script without running it. brimble run also runs .tape files.") +
          "\n";
  page += paragraph(
      "In double-quoted strings \\n is a line feed, \\t a tab, \\\" a quote, \\\\ a backslash "
      "and \\$ a dollar sign. $name in a string is replaced by the variable's text.");
  page += ".SH COMMANDS\n";
  for (const ScriptCommandInfo& command : commandManifest().commands) {
    page += ".TP\n" + roffBold(command.name) + argumentsOf(command) + "\n" +
            roffText(command.description) +
            "\n.br\nExample: " + roffBold(snippetExample(command.snippet)) + "\n";
  }
  page += ".SH SETTINGS\n";
  page += paragraph("Set with set NAME VALUE; brimble settings lists them too.");
  for (const ScriptSettingInfo& setting : scriptSettingsTable()) {
    std::string text = setting.meaning + " (" + setting.type;
    if (setting.defaultValue) {
      text += ", default " + *setting.defaultValue;
    }
    text += ")";
    if (!setting.allowedValues.empty()) {
      text += " Values: " + joinedWithCommas(setting.allowedValues) + ".";
    }
    page += taggedParagraph(roffBold(setting.name), text);
  }
  page += ".SH EXAMPLE\n.PP\n.nf\n" +
          roffText(
              "set output \"hello.gif\"\n"
              "open \"Terminal\"\n"
              "capture-window app \"Terminal\" as $term\n"
              "record $term continue\n"
              "type \"echo 'Hello from Brimble!'\" enter\n"
              "wait 1\n"
              "stop") +
          "\n.fi\n";
  page += ".SH SEE ALSO\n" + roffBold("brimble") + "(1), " + roffBold("brimble-app") + "(1)\n";
  return page;
}

}  // namespace

std::string manualPage(ManualPage page, const CommandOutline& root) {
  switch (page) {
    case ManualPage::brimble:
      return brimblePage(root);
    case ManualPage::brimbleApp:
      return appPage();
    case ManualPage::script:
      return scriptPage();
  }
  return {};
}

void writeManualsAndCompletions(const fs::path& share, const CommandOutline& root) {
  const std::pair<fs::path, std::string> files[] = {
      {"man/man1/brimble.1", manualPage(ManualPage::brimble, root)},
      {"man/man1/brimble-app.1", manualPage(ManualPage::brimbleApp, root)},
      {"man/man5/brimble-script.5", manualPage(ManualPage::script, root)},
      {"bash-completion/completions/brimble", completionScript(root, CompletionShell::bash)},
      {"zsh/site-functions/_brimble", completionScript(root, CompletionShell::zsh)},
      {"fish/vendor_completions.d/brimble.fish", completionScript(root, CompletionShell::fish)},
  };
  for (const auto& [file, contents] : files) {
    const fs::path path = share / file;
    fs::create_directories(path.parent_path());
    writeFileAtomically(path, contents, kReadableByAll);
  }
}

Command addManualCommand(CLI::App& app) {
  struct Options {
    std::string page;
    std::string share;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("manual", "Print a manual page, or write them all");
  command->group("");  // for the build, not for users
  command->add_option("--man", options->page, "The page: brimble, brimble-app or script")
      ->check(oneOf("page", {"brimble", "brimble-app", "script"}));
  command->add_option("--write", options->share,
                      "Write the pages and the completion scripts under this share folder");
  command->require_option(1);
  CLI::App* root = &app;
  return {command, [options, root] {
            const CommandOutline outline = outlineOf(*root);
            if (!options->share.empty()) {
              writeManualsAndCompletions(options->share, outline);
              return kExitSuccess;
            }
            const ManualPage page = options->page == "brimble-app" ? ManualPage::brimbleApp
                                    : options->page == "script"    ? ManualPage::script
                                                                   : ManualPage::brimble;
            fmt::print("{}", manualPage(page, outline));
            return kExitSuccess;
          }};
}

}  // namespace brimble::cli
