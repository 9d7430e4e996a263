#include "Brimble/Recording/AnnotationStore.h"

#include <algorithm>
#include <chrono>

namespace brimble {

void AnnotationStore::startRecording() {
  recordingStartTime_ = clock_.now();
  totalPausedDuration_ = {};
  pauseStartTime_.reset();
  annotations_.clear();
}

void AnnotationStore::pauseRecording() {
  if (!pauseStartTime_) {
    pauseStartTime_ = clock_.now();
  }
}

void AnnotationStore::resumeRecording() {
  if (pauseStartTime_) {
    totalPausedDuration_ += clock_.now() - *pauseStartTime_;
    pauseStartTime_.reset();
  }
}

double AnnotationStore::recordingTime() const {
  const Clock::TimePoint now = clock_.now();
  Clock::Duration paused = totalPausedDuration_;
  if (pauseStartTime_) {
    paused += now - *pauseStartTime_;
  }
  return std::max(0.0, std::chrono::duration<double>(now - recordingStartTime_ - paused).count());
}

const Annotation& AnnotationStore::add(Annotation annotation) {
  annotation.time = recordingTime();
  annotations_.push_back(std::move(annotation));
  return annotations_.back();
}

}  // namespace brimble
