#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "BrimbleCore/Encoding/AudioTrack.h"
#include "BrimbleCore/Encoding/FrameOutput.h"
#include "BrimbleCore/Encoding/LibavHandles.h"

struct AVStream;

namespace brimble {

/// How the video writer encodes.
struct VideoOptions {
  /// Constant quality, 0 (lossless) to 51; lower is better and larger.
  int crf = 23;
  /// x264's speed preset, from "ultrafast" to "placebo": slower presets make smaller files.
  std::string preset = "veryfast";
  /// The frame rate frames were captured at: x264's rate control reads it; the frames' own
  /// delays set their times.
  int frameRate = 30;
  /// Sound muxed beside the frames, trimmed or padded with silence to the frames' length.
  std::optional<AudioTrack> audio;
};

/// Writes H.264 video (yuv420p, BT.709 limited range) in an MP4 file whose index comes before
/// the media data, so that players start before the whole file has arrived. Each frame starts
/// where the delays before it end, in milliseconds, so variable frame rates stay exact. Sizes
/// are made even, as 4:2:0 needs, by repeating the last column or row: nothing recorded is cut.
/// Optional sound is encoded as AAC. One thread at a time.
class VideoWriter final : public FrameOutput {
 public:
  /// Writes to `file` (created or truncated at the first frame). Throws VideoError for options
  /// the encoder refuses.
  VideoWriter(std::filesystem::path file, VideoOptions options);
  /// Frees everything; an unfinished file is left incomplete for the caller to delete.
  ~VideoWriter() override;
  VideoWriter(const VideoWriter&) = delete;
  VideoWriter& operator=(const VideoWriter&) = delete;

  /// Throws VideoError (writerStopped, frameSizeChanged, encoderUnavailable).
  void append(const Image& image, double delay) override;
  /// Flushes the encoders and writes the index. Throws VideoError::writerStopped, or
  /// MuxError::noFramesAppended when no frame was appended.
  void finish() override;
  const EncodeSummary& summary() const noexcept override { return summary_; }

  /// Throws VideoError::invalidSetting unless `crf` and `preset` are ones x264 takes.
  static void checkOptions(int crf, std::string_view preset);

 private:
  void open(int width, int height);
  void openAudio();
  void encodeVideo(const AVFrame* frame);
  void encodeAudio(const AVFrame* frame);
  /// Encodes sound up to `end` milliseconds of the video timeline; with `last`, also the
  /// final partial frame.
  void writeAudioUntil(std::int64_t end, bool last);
  /// Sends what `codec` has ready to the file.
  void drain(AVCodecContext* codec, AVStream* stream, bool isVideo);
  void writePacket(AVPacket& packet, AVCodecContext* codec, AVStream* stream);
  void fillPicture(const Image& image);

  std::filesystem::path file_;
  VideoOptions options_;
  EncodeSummary summary_;
  int sourceWidth_ = 0;
  int sourceHeight_ = 0;
  std::int64_t elapsedMs_ = 0;  // where the next frame starts
  double elapsed_ = 0;          // the same in exact seconds, so rounding never drifts
  std::map<std::int64_t, std::int64_t> durations_;  // frame start -> milliseconds shown
  AVFormatContextPtr format_;
  AVCodecContextPtr video_;
  AVCodecContextPtr audio_;
  AVStream* videoStream_ = nullptr;  // owned by format_
  AVStream* audioStream_ = nullptr;  // owned by format_
  AVFramePtr picture_;
  AVFramePtr sound_;
  AVPacketPtr packet_;
  /// The video packet last in decoding order so far: the track ends where it does, so it is
  /// written only once the next one comes, or at the end with the duration that makes the track
  /// as long as the frames' times (x264 reorders frames, and the last one out is not the last
  /// shown).
  AVPacketPtr heldVideo_;
  /// The first video packet's decoding time: below 0 by the frames the encoder holds back to
  /// reorder, which the file's edit list takes off the track's length.
  std::optional<std::int64_t> firstVideoDts_;
  SwsContextPtr scaler_;
  std::ifstream audioFile_;
  std::int64_t audioWritten_ = 0;  // samples encoded so far
};

}  // namespace brimble
