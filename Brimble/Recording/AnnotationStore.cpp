#include "Brimble/Recording/AnnotationStore.h"

#include <algorithm>
#include <chrono>

namespace brimble {

void AnnotationStore::startRecording() {
  recordingStartDate_ = clock_.now();
  totalPausedDuration_ = {};
  pauseStartDate_.reset();
  annotations_.clear();
}

void AnnotationStore::pauseRecording() {
  if (!pauseStartDate_) {
    pauseStartDate_ = clock_.now();
  }
}

void AnnotationStore::resumeRecording() {
  if (pauseStartDate_) {
    totalPausedDuration_ += clock_.now() - *pauseStartDate_;
    pauseStartDate_.reset();
  }
}

double AnnotationStore::recordingTime() const {
  const Clock::TimePoint now = clock_.now();
  Clock::Duration paused = totalPausedDuration_;
  if (pauseStartDate_) {
    paused += now - *pauseStartDate_;
  }
  return std::max(0.0, std::chrono::duration<double>(now - recordingStartDate_ - paused).count());
}

const Annotation& AnnotationStore::add(Annotation annotation) {
  annotation.time = recordingTime();
  annotations_.push_back(std::move(annotation));
  return annotations_.back();
}

}  // namespace brimble
