#include "BrimbleCore/Scripting/ScriptTextWait.h"

#include <algorithm>

#include <fmt/format.h>

#include "BrimbleCore/Scripting/ScriptError.h"
#include "BrimbleCore/Scripting/ScriptNumber.h"
#include "BrimbleCore/Scripting/TextRecognizer.h"

namespace brimble {
namespace {

// A terminal's text costs a read of what was written since; a picture costs a run of
// tesseract, which takes longer than this anyway.
constexpr double kTerminalPoll = 0.1;
constexpr double kPicturePoll = 0.25;
// The last line an error quotes is cut to about this many bytes, its end kept: a prompt and
// what was typed after it are at the end.
constexpr std::size_t kQuotedLine = 80;

std::string quotedEnd(const std::string& text) {
  if (text.size() <= kQuotedLine) {
    return "\"" + text + "\"";
  }
  std::size_t start = text.size() - (kQuotedLine - 3);
  // Not inside a UTF-8 character: continuation bytes are 10xxxxxx.
  while (start < text.size() && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
    ++start;
  }
  return "\"..." + text.substr(start) + "\"";
}

std::string lastNonBlank(const std::vector<std::string>& lines) {
  for (auto it = lines.rbegin(); it != lines.rend(); ++it) {
    if (it->find_first_not_of(" \t") != std::string::npos) {
      return *it;
    }
  }
  return {};
}

}  // namespace

TextWaitPattern textWaitPattern(const std::string& pattern, int line) {
  try {
    return {std::regex(pattern, std::regex::ECMAScript),
            pattern.find('\n') != std::string::npos || pattern.find("\\n") != std::string::npos};
  } catch (const std::regex_error& error) {
    throw ScriptError::runtimeError(
        line, "invalid wait-for-text pattern \"" + pattern + "\": " + error.what());
  }
}

bool textWaitMatches(const TextWaitPattern& pattern, const std::vector<std::string>& lines,
                     bool lastLine) {
  if (lastLine) {
    const std::string last = lastNonBlank(lines);
    return !last.empty() && std::regex_search(last, pattern.regex);
  }
  if (std::any_of(lines.begin(), lines.end(), [&](const std::string& shown) {
        return std::regex_search(shown, pattern.regex);
      })) {
    return true;
  }
  // std::regex recurses as deep as the text is long for some patterns: only one that asks to
  // span lines ("Name:\nDone") is given the whole screen, blank rows at its end left out so
  // "$" can mean its end.
  if (!pattern.spansLines) {
    return false;
  }
  std::size_t used = lines.size();
  while (used > 0 && lines[used - 1].empty()) {
    --used;
  }
  std::string screen;
  for (std::size_t i = 0; i < used; ++i) {
    screen += (i == 0 ? "" : "\n") + lines[i];
  }
  return std::regex_search(screen, pattern.regex);
}

ScriptTextWait::Source ScriptTextWait::source(int line) const {
  Source source;
  std::optional<std::uint32_t> window = segments_.recordingWindow();
  if (!window) {
    if (const auto recorded = segments_.recordingTarget()) {
      source.picture = recorded;  // a region being recorded: its picture is what is seen
      return source;
    }
    const std::optional<TargetWindow>& target = targets_.targetWindow();
    window = target ? std::optional(target->id) : services_.windows.focusedWindow();
  }
  if (window && targets_.terminalText().follows(*window)) {
    source.terminal = window;
  } else if (window) {
    source.picture = CaptureTarget::windowOf(*window);
  } else {
    const auto displays = services_.screen.displays();
    if (displays.empty()) {
      throw ScriptError::runtimeError(line, services_.texts.screenRecordingRequired);
    }
    source.picture = CaptureTarget::screenAreaOf(displays.front().frame);
  }
  return source;
}

std::optional<std::vector<std::string>> ScriptTextWait::look(const Source& source, int line) {
  if (source.terminal) {
    return targets_.terminalText().screen(*source.terminal).lines();
  }
  const std::optional<Image> picture = services_.screen.openStream(*source.picture, false)->grab();
  if (!picture) {
    throw ScriptError::runtimeError(line, "wait-for-text: the screen gave no picture to read");
  }
  return TextRecognizer::readLines(*picture, [this] { return clock_.shouldStop(); });
}

void ScriptTextWait::wait(const std::string& pattern, double timeout, bool lastLine, int line) {
  const TextWaitPattern regex = textWaitPattern(pattern, line);
  const Source source = this->source(line);
  const double poll = source.terminal ? kTerminalPoll : kPicturePoll;
  const Clock::TimePoint giveUp = clock_.after(timeout);
  while (!clock_.shouldStop()) {
    const Clock::TimePoint looked = clock_.now();
    const auto lines = look(source, line);
    if (!lines) {
      return;  // interrupted while tesseract read
    }
    if (textWaitMatches(regex, *lines, lastLine)) {
      return;
    }
    if (clock_.now() >= giveUp) {
      const std::string last = lastNonBlank(*lines);
      throw ScriptError::runtimeError(
          line,
          fmt::format("no text matching \"{}\" {} after {} s ({})", pattern,
                      lastLine ? "in the last line" : "on screen", formatScriptNumber(timeout),
                      last.empty() ? "the screen was blank" : "its last line: " + quotedEnd(last)));
    }
    const double next = poll - clock_.secondsSince(looked);
    clock_.wait(std::min(next, ScriptClock::secondsBetween(clock_.now(), giveUp)));
  }
}

}  // namespace brimble
