#include "BrimbleCore/Effects/SegmentSound.h"

#include <cerrno>
#include <cmath>
#include <fstream>
#include <system_error>
#include <vector>

namespace brimble::SegmentSound {

std::optional<AudioTrack> compose(const FrameCompositor& compositor,
                                  std::span<const RenderSegment> segments, int fps,
                                  const std::filesystem::path& file, double speed) {
  const RenderSegment* first = nullptr;
  for (const RenderSegment& segment : segments) {
    if (segment.sound && first == nullptr) {
      first = &segment;
    }
  }
  if (first == nullptr) {
    return std::nullopt;
  }
  const int rate = first->sound->sampleRate;
  const int channels = first->sound->channels;
  std::vector<std::ifstream> inputs(segments.size());
  for (std::size_t s = 0; s < segments.size(); ++s) {
    if (segments[s].sound) {
      inputs[s].open(segments[s].sound->samples, std::ios::binary);
      if (!inputs[s]) {
        throw std::system_error(errno, std::generic_category(),
                                "read " + segments[s].sound->samples.string());
      }
    }
  }
  std::ofstream output(file, std::ios::binary | std::ios::trunc);
  std::vector<float> samples;
  std::vector<float> recorded;
  std::int64_t written = 0;  // sample frames so far
  const auto& timeline = compositor.timeline();
  for (std::size_t k = 0; k < timeline.size(); ++k) {
    // Frame k covers samples [k * rate / fps, (k + 1) * rate / fps): rounding the ends keeps
    // the whole track exactly as long as the frames.
    const auto end =
        static_cast<std::int64_t>(std::llround(static_cast<double>(k + 1) * rate / fps));
    const auto count = static_cast<std::size_t>(end - written);
    samples.assign(count * static_cast<std::size_t>(channels), 0.0F);
    const TimelineFrame& frame = timeline[k];
    const auto segment = static_cast<std::size_t>(frame.segment);
    if (frame.source == TimelineSource::segment && segment < segments.size() &&
        segments[segment].sound && segments[segment].sound->channels == channels &&
        segments[segment].sound->sampleRate == rate) {
      // Sample index in the file for the segment time the frame shows.
      const auto from = std::llround((frame.time - segments[segment].sound->start) * rate);
      const auto taken = static_cast<std::int64_t>(
          std::max<long long>(1, std::llround(static_cast<double>(count) * speed)));
      recorded.assign(static_cast<std::size_t>(taken * channels), 0.0F);
      const std::int64_t skip = std::max<std::int64_t>(0, -from);
      if (skip < taken) {
        std::ifstream& input = inputs[segment];
        input.clear();
        input.seekg(static_cast<std::streamoff>((from + skip) * channels * 4));
        input.read(reinterpret_cast<char*>(recorded.data() + skip * channels),
                   static_cast<std::streamsize>((taken - skip) * channels * 4));
      }
      // The frame's share of the recording, fitted to the frame's time by the nearest sample.
      for (std::size_t i = 0; i < count; ++i) {
        const auto source = static_cast<std::size_t>(std::min<std::int64_t>(
            taken - 1, static_cast<std::int64_t>(i) * taken / static_cast<std::int64_t>(count)));
        for (int c = 0; c < channels; ++c) {
          samples[i * channels + c] = recorded[source * channels + c];
        }
      }
    }
    output.write(reinterpret_cast<const char*>(samples.data()),
                 static_cast<std::streamsize>(samples.size() * sizeof(float)));
    written = end;
  }
  output.close();
  if (!output) {
    throw std::system_error(errno, std::generic_category(), "write " + file.string());
  }
  AudioTrack track;
  track.samples = file;
  track.sampleRate = rate;
  track.channels = channels;
  track.start = 0;
  return track;
}

}  // namespace brimble::SegmentSound
