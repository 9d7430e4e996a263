#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "BrimbleCore/Automation/WindowSystem.h"
#include "BrimbleCore/Capture/SegmentRecorder.h"
#include "BrimbleCore/Effects/RenderSegment.h"
#include "BrimbleCore/MCP/JSONValue.h"

namespace brimble {

/// A recording that is still capturing.
struct ActiveRecording {
  std::unique_ptr<SegmentRecorder> recorder;
  /// The window it records; none for a region.
  std::optional<WindowInfo> window;
  int fps = 30;
  std::chrono::steady_clock::time_point startTime = std::chrono::steady_clock::now();
  bool paused = false;
  /// When it stops itself (a `duration` was given); none: only stop_recording ends it.
  std::optional<std::chrono::steady_clock::time_point> stopAt;
};

/// A stopped recording. Its frames are shared so a render keeps them alive even if the
/// recording is evicted meanwhile.
struct CompletedRecording {
  std::shared_ptr<const RenderSegment> segment;
  int fps = 30;
  std::optional<WindowInfo> window;
  int frames = 0;
  double elapsed = 0;
};

/// A file this server produced.
struct RecentOutput {
  std::filesystem::path path;
  std::uintmax_t sizeBytes = 0;
  /// "WxH", or "unknown".
  std::string dimensions;
  /// ISO 8601, UTC.
  std::string date;
};

/// The MCP server's state between tool calls: recordings that run, recordings whose frames wait
/// for a render, ids whose frames were freed, and the files produced. Thread-safe: every method
/// takes the one lock, since recordings stop themselves on the context's own timer thread while
/// tools run. Recorders are stopped outside the lock, so a slow stop never blocks a reader.
class SessionContext {
 public:
  /// Completed recordings that keep their frames; the least recently used beyond are released.
  static constexpr std::size_t kRetainedRecordings = 3;
  static constexpr std::size_t kRecentOutputs = 50;

  /// Where a session id stands.
  enum class RecordingStatus { unknown, active, completed, released };

  /// What stopping a recording gave.
  struct StopSummary {
    int frames = 0;
    double elapsed = 0;
  };

  explicit SessionContext(std::string cliVersion = "");
  SessionContext(const SessionContext&) = delete;
  SessionContext& operator=(const SessionContext&) = delete;
  /// Stops the running recordings and frees every frame file.
  ~SessionContext();

  const std::string& cliVersion() const noexcept { return cliVersion_; }

  /// "rec-" and 8 lower-case hexadecimal characters, never handed out before by this context.
  std::string generateID();

  /// Registers a started recording under `id`; one with `stopAt` stops itself then and becomes
  /// completed.
  void addActiveRecording(const std::string& id, ActiveRecording recording);
  bool isActive(const std::string& id) const;
  /// The active ids, oldest first.
  std::vector<std::string> activeIDs() const;
  /// Sets the paused flag of an active recording (its recorder stops taking frames meanwhile);
  /// returns its frames so far, or no value when `id` is not active.
  std::optional<int> setPaused(const std::string& id, bool paused);
  /// Stops the recorder, keeps its frames as a completed recording and returns what it took; no
  /// value when `id` is not active.
  std::optional<StopSummary> stopRecording(const std::string& id);

  /// Adds a completed recording as the most recently used, releasing the least recently used
  /// beyond kRetainedRecordings.
  void addCompletedRecording(const std::string& id, CompletedRecording recording);
  /// The completed recording `id`, now the most recently used; no value when it is not held.
  std::optional<CompletedRecording> getCompletedRecording(const std::string& id);
  /// Frees the frames of `id`; false when it held none.
  bool removeCompletedRecording(const std::string& id);
  bool wasReleased(const std::string& id) const;
  /// The ids that hold frames, least recently used first.
  std::vector<std::string> completedIDs() const;
  RecordingStatus state(const std::string& id) const;

  /// Adds a produced file, dropping the oldest beyond kRecentOutputs.
  void addRecentOutput(RecentOutput output);
  /// Oldest first.
  std::vector<RecentOutput> recentOutputs() const;

  JSONValue setting(const std::string& key) const;
  void setSetting(JSONValue value, const std::string& key);

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Adds under the lock; returns the segments released, to be destroyed after unlocking.
  std::vector<std::shared_ptr<const RenderSegment>> insertCompleted(const std::string& id,
                                                                    CompletedRecording recording);
  std::optional<StopSummary> finish(const std::string& id);
  void watchDeadlines(const std::stop_token& stop);

  const std::string cliVersion_;

  mutable std::mutex recordingsMutex_;  // guards the recordings, outputs and settings below
  std::condition_variable_any deadlinesChanged_;
  std::uint64_t activeGeneration_ = 0;  // counts additions, so the timer sees new deadlines
  std::set<std::string> issuedIDs_;
  std::map<std::string, ActiveRecording> active_;
  std::vector<std::string> activeOrder_;
  std::map<std::string, CompletedRecording> completed_;
  std::list<std::string> accessOrder_;  // least recently used first
  std::set<std::string> released_;
  std::vector<RecentOutput> outputs_;
  std::map<std::string, JSONValue> settings_;

  // Last, so it stops before the state it reads goes away.
  std::jthread deadlineThread_;
};

}  // namespace brimble
