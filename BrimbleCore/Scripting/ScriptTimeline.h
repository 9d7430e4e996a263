#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "BrimbleCore/Effects/OutputClock.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/Scripting/ScriptInstruction.h"

namespace brimble {

/// A moment of a script's run: `time` seconds into the segment that `record` started as the
/// `segment`-th (from 0), or, without a time, between segments, before that one starts.
/// `hidden` moments (between `hide` and `show`) have no place in the output of their own.
struct TimelineStamp {
  int segment = 0;
  std::optional<double> time;
  bool hidden = false;
};

/// What happened when in a script's output, for assistants and editors who cannot watch it:
/// each instruction, the chapters, captions, keystrokes and clicks, at the times the output
/// shows them (after title cards, crossfades and idle stretches cut or sped through). Moments
/// between segments show where the output goes on, and so do instructions that ran while
/// hidden, which say so. Filled while the script runs, written at the
/// render; one thread at a time.
class ScriptTimeline {
 public:
  /// Notes that the instruction at `located` ran from `start` to `end`.
  void addInstruction(const LocatedInstruction& located, TimelineStamp start, TimelineStamp end);
  /// Notes a chapter called `name` (from line `line`) at `at`.
  void addChapter(std::string name, int line, TimelineStamp at);

  /// The timeline of a render into `output` of `segments`, the ones numbered `numbers` (as in
  /// the stamps), played as `clock` says: a JSON object with `output`, `duration`, `loopStart`
  /// (where in these times the file's first frame is; the part before it plays at the end) and
  /// the lists `segments`, `chapters`, `instructions` (`"hidden": true` for those that ran while
  /// hidden), `captions`, `keystrokes` and `clicks`, times in seconds of the output from its
  /// beginning (before any loop offset) to the millisecond.
  std::string document(const std::filesystem::path& output, std::span<const RenderSegment> segments,
                       std::span<const int> numbers, const OutputClock& clock) const;

 private:
  struct Instruction {
    int line = 0;
    std::string command;
    std::string source;
    TimelineStamp start;
    TimelineStamp end;
  };
  struct Chapter {
    std::string name;
    int line = 0;
    TimelineStamp at;
  };

  std::vector<Instruction> instructions_;
  std::vector<Chapter> chapters_;
};

}  // namespace brimble
