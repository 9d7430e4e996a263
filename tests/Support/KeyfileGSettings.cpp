#include "tests/Support/KeyfileGSettings.h"

#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "Brimble/Settings/DesktopShortcut.h"
#include "BrimbleCore/Support/Subprocess.h"

namespace brimble::testing {
namespace {

struct GSettingsRun {
  int exitCode = -1;
  std::string output;
};

/// Runs gsettings with `arguments` (shell words, quoted by the caller) as the user would.
GSettingsRun runGSettings(const std::string& arguments) {
  GSettingsRun run;
  FILE* pipe = ::popen(("gsettings " + arguments + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) {
    return run;
  }
  char buffer[4096];
  while (const std::size_t got = std::fread(buffer, 1, sizeof buffer, pipe)) {
    run.output.append(buffer, got);
  }
  const int status = ::pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

/// `text` as one shell word.
std::string gsettingsWord(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

}  // namespace

bool KeyfileGSettings::available() {
  if (!findProgram("gsettings")) {
    return false;
  }
  const std::string schemas = runGSettings("list-schemas").output;
  return schemas.find(std::string(DesktopShortcut::kMediaKeysSchema) + "\n") != std::string::npos;
}

KeyfileGSettings::KeyfileGSettings() {
  ::setenv("GSETTINGS_BACKEND", "keyfile", 1);
  ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
}

KeyfileGSettings::~KeyfileGSettings() {
  ::unsetenv("GSETTINGS_BACKEND");
}

std::string KeyfileGSettings::get(const std::string& schema, const std::string& key) const {
  std::string output = runGSettings("get " + gsettingsWord(schema) + " " + key).output;
  if (!output.empty() && output.back() == '\n') {
    output.pop_back();
  }
  return output;
}

void KeyfileGSettings::set(const std::string& schema, const std::string& key,
                           const std::string& value) const {
  EXPECT_EQ(runGSettings("set " + gsettingsWord(schema) + " " + key + " " + gsettingsWord(value))
                .exitCode,
            0)
      << "gsettings set " << schema << " " << key;
}

std::string KeyfileGSettings::ours(const std::string& key) const {
  return get(
      std::string(DesktopShortcut::kKeybindingSchema) + ":" + DesktopShortcut::kKeybindingPath,
      key);
}

std::string KeyfileGSettings::usersOwn(const std::string& key) const {
  return get(std::string(DesktopShortcut::kKeybindingSchema) + ":" + kUsersKeybinding, key);
}

std::string KeyfileGSettings::list() const {
  return get(DesktopShortcut::kMediaKeysSchema, "custom-keybindings");
}

void KeyfileGSettings::addUsersOwn() const {
  const std::string schema =
      std::string(DesktopShortcut::kKeybindingSchema) + ":" + kUsersKeybinding;
  set(schema, "name", "Terminal");
  set(schema, "command", "gnome-terminal");
  set(schema, "binding", "<Super>t");
  set(DesktopShortcut::kMediaKeysSchema, "custom-keybindings",
      std::string("['") + kUsersKeybinding + "']");
}

}  // namespace brimble::testing
