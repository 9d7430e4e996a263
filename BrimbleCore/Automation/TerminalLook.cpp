#include "BrimbleCore/Automation/TerminalLook.h"

#include <algorithm>
#include <cstdio>

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
         !lineHeight;
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
  return arguments;
}

}  // namespace brimble
