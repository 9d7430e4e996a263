#include "BrimbleCore/Automation/TerminalLook.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace brimble {
namespace {

std::string decimal(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

}  // namespace

bool TerminalLook::empty() const noexcept {
  return !font && !fontSize && !columns && !rows && !theme && !padding && !title && !cursorBlink &&
         !lineHeight && !shell && !prompt;
}

std::vector<std::string> TerminalLook::shellCommand() const {
  if (!shell && !prompt) {
    return {};
  }
  const std::string program = shell.value_or("bash");
  if (!prompt) {
    return {program};
  }
  const std::string name = std::filesystem::path(program).filename().string();
  if (name == "fish") {
    // fish draws its prompt with a function; the text goes through printf's %s untouched.
    std::string quoted = "'";
    for (const char c : *prompt) {
      quoted += c == '\''   ? std::string("\\'")
                : c == '\\' ? std::string("\\\\")
                            : std::string(1, c);
    }
    quoted += "'";
    return {program, "--no-config", "--init-command",
            "function fish_prompt; printf '%s' " + quoted + "; end"};
  }
  // The others read their prompt from PS1 in the environment when no startup file sets it; ENV
  // would name a startup file for sh and its kin.
  std::vector<std::string> command = {"env", "-u", "ENV", "PS1=" + *prompt, program};
  if (name == "bash") {
    command.insert(command.end(), {"--noprofile", "--norc"});
  } else if (name == "zsh") {
    command.push_back("-f");
  }
  return command;
}

std::vector<std::string> TerminalLook::xtermArguments() const {
  std::vector<std::string> arguments;
  // "xterm*" names the instance: more specific than the display's "XTerm*" resources, so these
  // win over them whatever order they are read in.
  const auto resource = [&](const std::string& name, const std::string& value) {
    arguments.push_back("-xrm");
    arguments.push_back("xterm*" + name + ": " + value);
  };
  if (font) {
    resource("faceName", *font);
  }
  if (fontSize) {
    resource("faceSize", decimal(*fontSize));
  }
  if (columns || rows) {
    resource("geometry",
             std::to_string(columns.value_or(88)) + "x" + std::to_string(rows.value_or(24)));
  }
  if (theme) {
    resource("background", theme->background);
    resource("foreground", theme->foreground);
    resource("cursorColor", theme->cursor);
    resource("highlightColor", theme->selection);
    for (std::size_t i = 0; i < theme->ansi.size(); ++i) {
      resource("color" + std::to_string(i), theme->ansi[i]);
    }
  }
  if (padding) {
    resource("internalBorder", std::to_string(std::max(*padding, 0)));
  }
  if (cursorBlink) {
    resource("cursorBlink", *cursorBlink ? "true" : "false");
  }
  if (lineHeight) {
    // xterm ignores a factor outside the range it takes; the nearest it takes is closer to what
    // was asked.
    resource("scaleHeight", decimal(std::clamp(*lineHeight, 0.9, 1.5)));
  }
  if (title) {
    // The title stays what was asked: programs in the terminal may not retitle it.
    resource("allowTitleOps", "false");
    arguments.push_back("-T");
    arguments.push_back(*title);
  }
  // The command goes last: xterm takes everything after -e as the command's own.
  if (const std::vector<std::string> command = shellCommand(); !command.empty()) {
    arguments.push_back("-e");
    arguments.insert(arguments.end(), command.begin(), command.end());
  }
  return arguments;
}

}  // namespace brimble
