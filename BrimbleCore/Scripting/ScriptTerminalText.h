#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>

#include "BrimbleCore/Automation/TerminalTranscript.h"
#include "BrimbleCore/Automation/WindowManager.h"
#include "BrimbleCore/Support/UniqueFd.h"

namespace brimble {

/// The text of the terminals a script opened with a log: the terminal appends what its programs
/// write to a file in a private folder of the run, and the screen is rebuilt from the bytes
/// added since the last look, so a look costs what was written since, and memory stays the
/// screen's whatever the log's length. The folder, and the logs in it, are removed with this
/// object. One thread at a time; the window manager is borrowed and must outlive it.
class ScriptTerminalText {
 public:
  explicit ScriptTerminalText(WindowManager& windows) : windows_(windows) {}
  ScriptTerminalText(const ScriptTerminalText&) = delete;
  ScriptTerminalText& operator=(const ScriptTerminalText&) = delete;
  ~ScriptTerminalText();

  /// A new empty log file for a terminal about to open, in the private folder (made the first
  /// time). Throws std::system_error when it cannot be made.
  std::filesystem::path newLog();
  /// Terminal window `window` writes `log`: its text can be read from now on. Its size in
  /// cells is read from the window (`columns` x `rows` where the window does not tell).
  /// Throws std::system_error when the log cannot be opened.
  void follow(std::uint32_t window, const std::filesystem::path& log, int columns, int rows);
  /// Whether the text of window `window` can be read.
  bool follows(std::uint32_t window) const { return terminals_.contains(window); }
  /// The screen of the terminal `window` follows as it is now. Throws std::out_of_range when it
  /// is not followed, std::system_error when its log cannot be read.
  const TerminalTranscript& screen(std::uint32_t window);

 private:
  struct Terminal {
    std::filesystem::path log;
    UniqueFd file;
    std::uint64_t offset = 0;
    /// How much of the log is already given back to the file system.
    std::uint64_t released = 0;
    TerminalTranscript transcript;
    /// The cells the window last said it sizes in: a window made to take any size (an exact
    /// pixel size) no longer says, and its text still comes in those cells.
    std::optional<WindowSizeSteps> steps{};
  };

  /// The size of `window` in cells, when its window says.
  void followSize(std::uint32_t window, Terminal& terminal);

  WindowManager& windows_;
  std::filesystem::path folder_;
  int logsMade_ = 0;
  std::map<std::uint32_t, Terminal> terminals_;
};

}  // namespace brimble
