#include "BrimbleCore/Capture/AudioRecorder.h"

#include <chrono>
#include <system_error>
#include <vector>

#include <pulse/error.h>
#include <pulse/simple.h>

#include "BrimbleCore/Capture/AudioError.h"
#include "BrimbleCore/Support/FileIO.h"

namespace brimble {
namespace {

// Reads of 10 ms: stopping waits at most that long, and the first read dates the recording.
constexpr int kChunkFrames = AudioRecorder::kSampleRate / 100;
// PulseAudio's own name for the monitor of whatever the default output is at the moment.
constexpr const char* kDefaultMonitor = "@DEFAULT_MONITOR@";

}  // namespace

void PaSimpleCloser::operator()(pa_simple* stream) const noexcept {
  pa_simple_free(stream);
}

AudioRecorder::AudioRecorder(const AudioSource& from, const Clock& clock) : clock_(clock) {
  const pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32LE, kSampleRate, kChannels};
  pa_buffer_attr buffering{};
  buffering.maxlength = static_cast<std::uint32_t>(-1);
  buffering.fragsize = static_cast<std::uint32_t>(kChunkFrames * kChannels * sizeof(float));
  const std::string source = from.source.empty() ? kDefaultMonitor : from.source;
  int error = 0;
  stream_.reset(pa_simple_new(from.server.empty() ? nullptr : from.server.c_str(), "Brimble",
                              PA_STREAM_RECORD, source.c_str(), "Recording", &sampleFormat, nullptr,
                              &buffering, &error));
  if (!stream_) {
    if (error == PA_ERR_CONNECTIONREFUSED || error == PA_ERR_INVALIDSERVER ||
        error == PA_ERR_CONNECTIONTERMINATED || error == PA_ERR_ACCESS) {
      throw AudioError::noSoundServer(pa_strerror(error));
    }
    throw AudioError::sourceUnavailable(
        from.source.empty() ? std::string("the default output's monitor") : from.source,
        pa_strerror(error));
  }
  file_ = temporaryDirectory() / ("brimble-audio-" + makeUUIDString() + ".f32");
  output_.open(file_, std::ios::binary | std::ios::trunc);
  if (!output_) {
    throw std::system_error(errno, std::generic_category(), "create " + file_.string());
  }
  thread_ = std::jthread([this](const std::stop_token& stop) { record(stop); });
}

AudioRecorder::~AudioRecorder() {
  thread_ = {};  // joins
  output_.close();
  std::error_code ignored;
  std::filesystem::remove(file_, ignored);
}

void AudioRecorder::record(const std::stop_token& stop) {
  std::vector<float> chunk(static_cast<std::size_t>(kChunkFrames) * kChannels);
  const auto bytes = chunk.size() * sizeof(float);
  while (!stop.stop_requested()) {
    int error = 0;
    if (pa_simple_read(stream_.get(), chunk.data(), bytes, &error) < 0) {
      failure_ = std::make_exception_ptr(AudioError::recordingFailed(pa_strerror(error)));
      return;
    }
    if (!firstSample_) {
      // The chunk just read began a chunk's length ago, plus what the server still holds.
      const pa_usec_t latency = pa_simple_get_latency(stream_.get(), &error);
      firstSample_ =
          clock_.now() - std::chrono::duration_cast<Clock::Duration>(
                             std::chrono::microseconds(latency) +
                             std::chrono::microseconds(1'000'000LL * kChunkFrames / kSampleRate));
    }
    output_.write(reinterpret_cast<const char*>(chunk.data()), static_cast<std::streamsize>(bytes));
    if (!output_) {
      failure_ = std::make_exception_ptr(
          AudioError::recordingFailed("cannot write " + file_.string() + " (is the disk full?)"));
      return;
    }
  }
}

AudioTrack AudioRecorder::stop(Clock::TimePoint videoStart) {
  thread_ = {};
  output_.close();
  if (failure_) {
    std::rethrow_exception(failure_);
  }
  if (output_.fail()) {
    throw AudioError::recordingFailed("cannot write " + file_.string() + " (is the disk full?)");
  }
  AudioTrack track;
  track.samples = file_;
  track.sampleRate = kSampleRate;
  track.channels = kChannels;
  track.start =
      std::chrono::duration<double>(firstSample_.value_or(videoStart) - videoStart).count();
  return track;
}

}  // namespace brimble
