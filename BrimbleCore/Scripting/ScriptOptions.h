#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string_view>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Scripting/ShellCommand.h"

namespace brimble {

/// How a script runs.
struct ScriptOptions {
  /// No progress lines (warnings still go to the log).
  bool quiet = false;
  /// A quick, small render: 10 fps, at most 400 pixels wide.
  bool preview = false;
  /// Replaces the script's `output` setting.
  std::optional<std::filesystem::path> output{};
  /// The script's folder: a page named by a relative path is looked for there when it is not
  /// in the working directory.
  std::filesystem::path scriptDirectory{};
  /// Receives progress lines; empty: none.
  ScriptOutput print{};
  /// The encoder's progress.
  EncodeProgress renderProgress{};
  /// An interrupt: the script stops before its next instruction (a blocking `record` ends at
  /// once) and renders what it recorded.
  std::stop_token interrupt{};
  /// Abandons the render: nothing is written (CancellationError).
  std::stop_token abandon{};

  /// Hands `line` to `print` unless the script runs quiet.
  void progress(std::string_view line) const {
    if (!quiet && print) {
      print(line);
    }
  }
};

}  // namespace brimble
