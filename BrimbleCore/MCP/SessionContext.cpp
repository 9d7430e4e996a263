#include "BrimbleCore/MCP/SessionContext.h"

#include <algorithm>
#include <cctype>

#include "BrimbleCore/Support/FileIO.h"

namespace brimble {

SessionContext::SessionContext(std::string cliVersion)
    : cliVersion_(std::move(cliVersion)),
      deadlineThread_([this](const std::stop_token& stop) { watchDeadlines(stop); }) {}

SessionContext::~SessionContext() {
  deadlineThread_.request_stop();
  deadlineThread_.join();
  std::map<std::string, ActiveRecording> running;
  {
    std::scoped_lock guard(recordingsMutex_);
    running.swap(active_);
    activeOrder_.clear();
  }
  // Stopped and dropped at once: the segments' stores delete their frame files.
  for (auto& [id, recording] : running) {
    recording.recorder->stop();
  }
}

std::string SessionContext::generateID() {
  std::scoped_lock guard(recordingsMutex_);
  while (true) {
    std::string id = "rec-" + makeUUIDString().substr(0, 8);
    std::transform(id.begin(), id.end(), id.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (issuedIDs_.insert(id).second) {
      return id;
    }
  }
}

void SessionContext::addActiveRecording(const std::string& id, ActiveRecording recording) {
  {
    std::scoped_lock guard(recordingsMutex_);
    issuedIDs_.insert(id);
    active_.insert_or_assign(id, std::move(recording));
    activeOrder_.push_back(id);
    ++activeGeneration_;
  }
  deadlinesChanged_.notify_all();
}

bool SessionContext::isActive(const std::string& id) const {
  std::scoped_lock guard(recordingsMutex_);
  return active_.contains(id);
}

std::vector<std::string> SessionContext::activeIDs() const {
  std::scoped_lock guard(recordingsMutex_);
  return activeOrder_;
}

std::optional<int> SessionContext::setPaused(const std::string& id, bool paused) {
  std::scoped_lock guard(recordingsMutex_);
  const auto found = active_.find(id);
  if (found == active_.end()) {
    return std::nullopt;
  }
  found->second.paused = paused;
  found->second.recorder->setPaused(paused);
  return found->second.recorder->frameCount();
}

std::optional<SessionContext::StopSummary> SessionContext::stopRecording(const std::string& id) {
  return finish(id);
}

std::optional<SessionContext::StopSummary> SessionContext::finish(const std::string& id) {
  ActiveRecording recording;
  {
    std::scoped_lock guard(recordingsMutex_);
    const auto found = active_.find(id);
    if (found == active_.end()) {
      return std::nullopt;
    }
    recording = std::move(found->second);
    active_.erase(found);
    std::erase(activeOrder_, id);
  }
  // Stopping joins the capture threads and finalizes the frame file: not under the lock.
  auto segment = std::make_shared<RenderSegment>(RenderSegment{recording.recorder->stop()});
  recording.recorder.reset();
  CompletedRecording completed;
  completed.frames = segment->frames ? segment->frames->count() : 0;
  completed.elapsed = segment->duration;
  completed.fps = recording.fps;
  completed.window = recording.window;
  completed.segment = std::move(segment);
  const StopSummary summary{completed.frames, completed.elapsed};
  addCompletedRecording(id, std::move(completed));
  return summary;
}

void SessionContext::addCompletedRecording(const std::string& id, CompletedRecording recording) {
  std::vector<std::shared_ptr<const RenderSegment>> evicted;
  {
    std::scoped_lock guard(recordingsMutex_);
    evicted = insertCompleted(id, std::move(recording));
  }
  // Dropped here, outside the lock: the last owner deletes the frame file.
  evicted.clear();
}

std::vector<std::shared_ptr<const RenderSegment>> SessionContext::insertCompleted(
    const std::string& id, CompletedRecording recording) {
  issuedIDs_.insert(id);
  released_.erase(id);
  completed_.insert_or_assign(id, std::move(recording));
  accessOrder_.remove(id);
  accessOrder_.push_back(id);
  std::vector<std::shared_ptr<const RenderSegment>> evicted;
  while (accessOrder_.size() > kRetainedRecordings) {
    const std::string oldest = accessOrder_.front();
    accessOrder_.pop_front();
    evicted.push_back(std::move(completed_[oldest].segment));
    completed_.erase(oldest);
    released_.insert(oldest);
  }
  return evicted;
}

std::optional<CompletedRecording> SessionContext::getCompletedRecording(const std::string& id) {
  std::scoped_lock guard(recordingsMutex_);
  const auto found = completed_.find(id);
  if (found == completed_.end()) {
    return std::nullopt;
  }
  accessOrder_.remove(id);
  accessOrder_.push_back(id);
  return found->second;
}

bool SessionContext::removeCompletedRecording(const std::string& id) {
  std::shared_ptr<const RenderSegment> freed;
  {
    std::scoped_lock guard(recordingsMutex_);
    const auto found = completed_.find(id);
    if (found == completed_.end()) {
      return false;
    }
    freed = std::move(found->second.segment);
    completed_.erase(found);
    accessOrder_.remove(id);
    released_.insert(id);
  }
  return true;
}

bool SessionContext::wasReleased(const std::string& id) const {
  std::scoped_lock guard(recordingsMutex_);
  return released_.contains(id);
}

std::vector<std::string> SessionContext::completedIDs() const {
  std::scoped_lock guard(recordingsMutex_);
  return {accessOrder_.begin(), accessOrder_.end()};
}

SessionContext::RecordingStatus SessionContext::state(const std::string& id) const {
  std::scoped_lock guard(recordingsMutex_);
  if (active_.contains(id)) {
    return RecordingStatus::active;
  }
  if (completed_.contains(id)) {
    return RecordingStatus::completed;
  }
  if (released_.contains(id)) {
    return RecordingStatus::released;
  }
  return RecordingStatus::unknown;
}

void SessionContext::addRecentOutput(RecentOutput output) {
  std::scoped_lock guard(recordingsMutex_);
  outputs_.push_back(std::move(output));
  if (outputs_.size() > kRecentOutputs) {
    outputs_.erase(outputs_.begin(), outputs_.end() - kRecentOutputs);
  }
}

std::vector<RecentOutput> SessionContext::recentOutputs() const {
  std::scoped_lock guard(recordingsMutex_);
  return outputs_;
}

JSONValue SessionContext::setting(const std::string& key) const {
  std::scoped_lock guard(recordingsMutex_);
  const auto found = settings_.find(key);
  return found == settings_.end() ? JSONValue() : found->second;
}

void SessionContext::setSetting(JSONValue value, const std::string& key) {
  std::scoped_lock guard(recordingsMutex_);
  settings_.insert_or_assign(key, std::move(value));
}

void SessionContext::watchDeadlines(const std::stop_token& stop) {
  std::unique_lock guard(recordingsMutex_);
  while (!stop.stop_requested()) {
    std::optional<TimePoint> next;
    std::string due;
    for (const auto& [id, recording] : active_) {
      if (recording.stopAt && (!next || *recording.stopAt < *next)) {
        next = recording.stopAt;
        due = id;
      }
    }
    const std::uint64_t seen = activeGeneration_;
    const auto changed = [&] { return activeGeneration_ != seen; };
    if (!next) {
      deadlinesChanged_.wait(guard, stop, changed);
      continue;
    }
    if (std::chrono::steady_clock::now() < *next) {
      deadlinesChanged_.wait_until(guard, stop, *next, changed);
      continue;
    }
    guard.unlock();
    finish(due);
    guard.lock();
  }
}

}  // namespace brimble
