#include "Brimble/Settings/DesktopShortcut.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <system_error>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "BrimbleCore/Automation/GlobalHotkey.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble {

namespace fs = std::filesystem;

namespace {

using namespace std::chrono_literals;

// gsettings answers at once; a wait this long means something is stuck, not slow.
constexpr auto kToolTimeout = 10s;
// Its answers are a few lines; more is not gsettings talking.
constexpr std::size_t kLargestAnswer = 1 << 20;

struct ToolResult {
  bool succeeded = false;
  std::string output;
  std::string errors;
};

/// Runs `arguments` and collects what it says, within kToolTimeout.
ToolResult runTool(const std::vector<std::string>& arguments) {
  Subprocess child;
  try {
    child = Subprocess::spawn(
        arguments, {.output = StreamConnection::pipe, .errorOutput = StreamConnection::pipe});
  } catch (const std::system_error& error) {
    return {false, {}, error.what()};
  }
  ToolResult result;
  const auto deadline = std::chrono::steady_clock::now() + kToolTimeout;
  std::string* sinks[] = {&result.output, &result.errors};
  UniqueFd* pipes[] = {&child.output(), &child.errorOutput()};
  while ((*pipes[0] || *pipes[1]) && std::chrono::steady_clock::now() < deadline) {
    pollfd fds[2] = {{pipes[0]->get(), POLLIN, 0}, {pipes[1]->get(), POLLIN, 0}};
    if (::poll(fds, 2, 100) <= 0) {
      continue;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) {
        continue;
      }
      char buffer[4096];
      const ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
      if (got <= 0 || sinks[i]->size() > kLargestAnswer) {
        pipes[i]->reset();
      } else {
        sinks[i]->append(buffer, static_cast<std::size_t>(got));
      }
    }
  }
  const auto status = child.waitFor(std::max(std::chrono::duration_cast<std::chrono::milliseconds>(
                                                 deadline - std::chrono::steady_clock::now()),
                                             std::chrono::milliseconds(0)));
  if (!status) {
    child.terminate();
    result.errors = "it did not answer within 10 s";
    return result;
  }
  result.succeeded = status->code == 0 && status->signal == 0;
  while (!result.errors.empty() && std::isspace(static_cast<unsigned char>(result.errors.back()))) {
    result.errors.pop_back();
  }
  return result;
}

std::vector<std::string> gsettings(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "gsettings");
  return arguments;
}

/// `text` as GVariant's text format writes a string.
std::string variantString(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') {
      quoted += '\\';
    }
    quoted += c;
  }
  return quoted + "'";
}

/// Reads the strings of GVariant's text for a string or an array of strings ("'a'",
/// "['a', \"b\"]", "@as []"). No value when it is something else.
std::optional<std::vector<std::string>> parseStrings(std::string_view text) {
  std::vector<std::string> strings;
  std::size_t i = 0;
  const auto skipSpace = [&] {
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) {
      ++i;
    }
  };
  skipSpace();
  if (text.substr(i).starts_with("@as")) {
    i += 3;
  }
  skipSpace();
  const bool array = i < text.size() && text[i] == '[';
  i += array ? 1 : 0;
  while (true) {
    skipSpace();
    if (i >= text.size()) {
      return array ? std::nullopt : std::optional(strings);
    }
    if (array && text[i] == ']') {
      ++i;
      skipSpace();
      return i == text.size() ? std::optional(strings) : std::nullopt;
    }
    const char quote = text[i];
    if (quote != '\'' && quote != '"') {
      return std::nullopt;
    }
    std::string value;
    for (++i; i < text.size() && text[i] != quote; ++i) {
      if (text[i] == '\\' && i + 1 < text.size()) {
        ++i;
      }
      value += text[i];
    }
    if (i >= text.size()) {
      return std::nullopt;
    }
    ++i;
    strings.push_back(std::move(value));
    skipSpace();
    if (array && i < text.size() && text[i] == ',') {
      ++i;
    } else if (!array) {
      skipSpace();
      return i == text.size() ? std::optional(strings) : std::nullopt;
    }
  }
}

std::string variantStrings(const std::vector<std::string>& strings) {
  if (strings.empty()) {
    return "@as []";
  }
  std::string text = "[";
  for (const std::string& entry : strings) {
    text += (text.size() > 1 ? ", " : "") + variantString(entry);
  }
  return text + "]";
}

/// `text` in single quotes, as a shell reads it back.
std::string shellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

std::string keybindingSchemaAtOurPath() {
  return std::string(DesktopShortcut::kKeybindingSchema) + ":" + DesktopShortcut::kKeybindingPath;
}

}  // namespace

DesktopShortcutError DesktopShortcutError::unsupported(const std::string& instructions) {
  return {Code::unsupported, instructions};
}

DesktopShortcutError DesktopShortcutError::failed(const std::string& what,
                                                  const std::string& detail) {
  return {Code::failed, fmt::format("Couldn't {}: {}.", what, detail)};
}

DesktopShortcut::DesktopShortcut(std::string_view currentDesktop) : kind_(Kind::other) {
  // A colon-separated list, most specific first ("ubuntu:GNOME", "Budgie:GNOME"): the desktop
  // whose settings hold the keybindings is named in it.
  std::size_t start = 0;
  while (start <= currentDesktop.size()) {
    std::size_t end = currentDesktop.find(':', start);
    end = end == std::string_view::npos ? currentDesktop.size() : end;
    std::string name(currentDesktop.substr(start, end - start));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (name == "GNOME") {
      kind_ = Kind::gnome;
      return;
    }
    if (name == "KDE") {
      kind_ = Kind::kde;
      return;
    }
    start = end + 1;
  }
}

DesktopShortcut DesktopShortcut::ofThisSession() {
  const char* current = std::getenv("XDG_CURRENT_DESKTOP");
  return DesktopShortcut(current != nullptr ? current : "");
}

std::string DesktopShortcut::toggleCommand(const fs::path& app) {
  const std::string path = app.string();
  const bool plain = !path.empty() && std::all_of(path.begin(), path.end(), [](unsigned char c) {
    return std::isalnum(c) || c == '/' || c == '.' || c == '_' || c == '-' || c == '+';
  });
  // Both GNOME and KDE split the command as a shell would.
  return (plain ? path : shellQuoted(path)) + " --toggle";
}

std::string DesktopShortcut::gnomeAccelerator(const std::string& keys) {
  const KeyChord chord = parseShortcut(keys);
  std::string accelerator;
  for (const auto& [modifier, name] :
       {std::pair{Modifier::control, "<Control>"}, std::pair{Modifier::shift, "<Shift>"},
        std::pair{Modifier::alt, "<Alt>"}, std::pair{Modifier::super, "<Super>"}}) {
    if (chord.modifiers.contains(modifier)) {
      accelerator += name;
    }
  }
  return accelerator + keysymNameOf(chord.key);
}

bool DesktopShortcut::canAdd() const {
  if (kind_ != Kind::gnome || !findProgram("gsettings")) {
    return false;
  }
  // GNOME's settings daemon brings the schema; a desktop calling itself GNOME without it has
  // nowhere to keep the keybinding.
  return runTool(gsettings({"get", kMediaKeysSchema, "custom-keybindings"})).succeeded;
}

std::vector<std::string> DesktopShortcut::customKeybindings() const {
  const ToolResult read = runTool(gsettings({"get", kMediaKeysSchema, "custom-keybindings"}));
  if (!read.succeeded) {
    throw DesktopShortcutError::failed("read GNOME's custom keyboard shortcuts", read.errors);
  }
  const auto list = parseStrings(read.output);
  if (!list) {
    throw DesktopShortcutError::failed("read GNOME's custom keyboard shortcuts",
                                       "gsettings answered \"" + read.output + "\"");
  }
  return *list;
}

std::string DesktopShortcut::keybindingValue(const char* key) const {
  const ToolResult read = runTool(gsettings({"get", keybindingSchemaAtOurPath(), key}));
  const auto value = read.succeeded ? parseStrings(read.output) : std::nullopt;
  if (!value || value->size() != 1) {
    throw DesktopShortcutError::failed("read Brimble's keyboard shortcut", read.errors);
  }
  return value->front();
}

DesktopShortcut::State DesktopShortcut::state(const std::string& keys, const fs::path& app) const {
  if (!canAdd()) {
    return State::absent;
  }
  const std::vector<std::string> list = customKeybindings();
  if (std::find(list.begin(), list.end(), kKeybindingPath) == list.end()) {
    return State::absent;
  }
  return keybindingValue("binding") == gnomeAccelerator(keys) &&
                 keybindingValue("command") == toggleCommand(app) &&
                 keybindingValue("name") == kName
             ? State::current
             : State::outdated;
}

void DesktopShortcut::add(const std::string& keys, const fs::path& app) const {
  const std::string accelerator = gnomeAccelerator(keys);
  if (!canAdd()) {
    throw DesktopShortcutError::unsupported(instructions(keys, app));
  }
  // Ours first, then the list: GNOME binds what the list names, so it never sees a half-written
  // keybinding.
  for (const auto& [key, value] :
       {std::pair{"name", std::string(kName)}, std::pair{"command", toggleCommand(app)},
        std::pair{"binding", accelerator}}) {
    const ToolResult written =
        runTool(gsettings({"set", keybindingSchemaAtOurPath(), key, variantString(value)}));
    if (!written.succeeded) {
      throw DesktopShortcutError::failed("add the keyboard shortcut", written.errors);
    }
  }
  std::vector<std::string> list = customKeybindings();
  if (std::find(list.begin(), list.end(), kKeybindingPath) != list.end()) {
    return;
  }
  list.push_back(kKeybindingPath);
  const ToolResult written =
      runTool(gsettings({"set", kMediaKeysSchema, "custom-keybindings", variantStrings(list)}));
  if (!written.succeeded) {
    throw DesktopShortcutError::failed("add the keyboard shortcut", written.errors);
  }
}

void DesktopShortcut::remove() const {
  if (!canAdd()) {
    return;
  }
  std::vector<std::string> list = customKeybindings();
  const auto ours = std::remove(list.begin(), list.end(), kKeybindingPath);
  if (ours != list.end()) {
    list.erase(ours, list.end());
    const ToolResult written =
        runTool(gsettings({"set", kMediaKeysSchema, "custom-keybindings", variantStrings(list)}));
    if (!written.succeeded) {
      throw DesktopShortcutError::failed("remove the keyboard shortcut", written.errors);
    }
  }
  // Left set, the values would linger in the user's settings with nothing naming them.
  for (const char* key : {"name", "command", "binding"}) {
    runTool(gsettings({"reset", keybindingSchemaAtOurPath(), key}));
  }
}

std::string DesktopShortcut::instructions(const std::string& keys, const fs::path& app) const {
  const std::string command = toggleCommand(app);
  switch (kind_) {
    case Kind::gnome:
      return fmt::format(
          "Open Settings → Keyboard → View and Customize Shortcuts → Custom Shortcuts, add a "
          "shortcut named {}, with the command {} and the shortcut {}.",
          kName, command, keys);
    case Kind::kde:
      return fmt::format(
          "Open System Settings → Keyboard → Shortcuts, choose Add New → Command or Script (on "
          "Plasma 5: Custom Shortcuts → Edit → New → Global Shortcut → Command/URL), enter the "
          "command {} and give it the shortcut {}.",
          command, keys);
    case Kind::other:
      break;
  }
  return fmt::format(
      "In your desktop's keyboard settings, add a custom shortcut that runs {} on {} (on sway: "
      "bindsym {} exec {} in ~/.config/sway/config).",
      command, keys, keys, command);
}

}  // namespace brimble
