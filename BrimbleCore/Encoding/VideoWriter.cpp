#include "BrimbleCore/Encoding/VideoWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include <fmt/format.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libswscale/swscale.h>
}

#include "BrimbleCore/Encoding/MuxError.h"
#include "BrimbleCore/Encoding/VideoError.h"
#include "BrimbleCore/Support/Log.h"

namespace brimble {
namespace {

// Frame times are whole milliseconds: fine enough for any delay a recording holds, and each
// frame's start is rounded from the exact running sum, so long recordings never drift.
constexpr AVRational kMilliseconds{1, 1000};
constexpr std::array<std::string_view, 10> kPresets = {
    "ultrafast", "superfast", "veryfast", "faster",   "fast",
    "medium",    "slow",      "slower",   "veryslow", "placebo"};
// AAC-LC at 64 kbit/s a channel keeps speech and interface sounds clean.
constexpr std::int64_t kAudioBitRatePerChannel = 64000;

/// Options handed to libav, freed whatever libav kept of them.
struct Dictionary {
  Dictionary() = default;
  Dictionary(const Dictionary&) = delete;
  Dictionary& operator=(const Dictionary&) = delete;
  ~Dictionary() { av_dict_free(&entries); }
  void set(const char* key, const std::string& value) {
    av_dict_set(&entries, key, value.c_str(), 0);
  }
  AVDictionary* entries = nullptr;
};

/// libav's errors go to our log like the library's other diagnostics; its per-file statistics
/// and notes would clutter the command's output.
void logFromLibav(void* object, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) {
    return;
  }
  char line[1024];
  int prefix = 1;
  av_log_format_line2(object, level, format, arguments, line, sizeof line, &prefix);
  std::string text(line);
  while (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  try {
    logLine("BrimbleCore: libav: " + text);
  } catch (...) {
    // A log line that cannot be written must not unwind through libav.
  }
}

void routeLibavLog() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(logFromLibav); });
}

void check(int result, const char* step) {
  if (result < 0) {
    throw VideoError::writerStopped(step, result);
  }
}

int even(int side) {
  return side + (side & 1);
}

}  // namespace

VideoWriter::VideoWriter(std::filesystem::path file, VideoOptions options)
    : file_(std::move(file)), options_(std::move(options)) {
  checkOptions(options_.crf, options_.preset);
  routeLibavLog();
}

VideoWriter::~VideoWriter() = default;

void VideoWriter::checkOptions(int crf, std::string_view preset) {
  if (crf < 0 || crf > 51) {
    throw VideoError::invalidSetting(
        fmt::format("the CRF must be a whole number from 0 to 51 (got {})", crf));
  }
  if (std::find(kPresets.begin(), kPresets.end(), preset) == kPresets.end()) {
    throw VideoError::invalidSetting(fmt::format(
        "unknown preset \"{}\" (use ultrafast, superfast, veryfast, faster, fast, medium, slow, "
        "slower, veryslow or placebo)",
        preset));
  }
}

void VideoWriter::open(int width, int height) {
  const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
  if (codec == nullptr) {
    throw VideoError::encoderUnavailable("libx264");
  }
  AVFormatContext* format = nullptr;
  check(avformat_alloc_output_context2(&format, nullptr, "mp4", file_.c_str()),
        "creating the MP4 muxer");
  format_.reset(format);
  video_.reset(avcodec_alloc_context3(codec));
  if (!video_) {
    check(AVERROR(ENOMEM), "creating the H.264 encoder");
  }
  video_->width = even(width);
  video_->height = even(height);
  video_->pix_fmt = AV_PIX_FMT_YUV420P;
  video_->time_base = kMilliseconds;
  video_->framerate = AVRational{std::max(options_.frameRate, 1), 1};
  // Screen content is sRGB, whose primaries are BT.709's; players that read no tag assume
  // BT.601 for small sizes, so the tag matters.
  video_->colorspace = AVCOL_SPC_BT709;
  video_->color_primaries = AVCOL_PRI_BT709;
  video_->color_trc = AVCOL_TRC_BT709;
  video_->color_range = AVCOL_RANGE_MPEG;
  video_->thread_count = 0;
  if ((format_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
    video_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  Dictionary settings;
  settings.set("crf", std::to_string(options_.crf));
  settings.set("preset", options_.preset);
  check(avcodec_open2(video_.get(), codec, &settings.entries), "opening the H.264 encoder");
  videoStream_ = avformat_new_stream(format_.get(), nullptr);
  if (videoStream_ == nullptr) {
    check(AVERROR(ENOMEM), "adding the video stream");
  }
  check(avcodec_parameters_from_context(videoStream_->codecpar, video_.get()),
        "describing the video stream");
  videoStream_->time_base = kMilliseconds;
  if (options_.audio) {
    openAudio();
  }

  check(avio_open(&format_->pb, file_.c_str(), AVIO_FLAG_WRITE), "opening the file");
  Dictionary muxing;
  // The index goes first, so players start before the whole file has arrived.
  muxing.set("movflags", "+faststart");
  check(avformat_write_header(format_.get(), &muxing.entries), "writing the MP4 header");

  picture_.reset(av_frame_alloc());
  packet_.reset(av_packet_alloc());
  if (!picture_ || !packet_) {
    check(AVERROR(ENOMEM), "allocating a picture");
  }
  picture_->format = AV_PIX_FMT_YUV420P;
  picture_->width = video_->width;
  picture_->height = video_->height;
  check(av_frame_get_buffer(picture_.get(), 0), "allocating a picture");
  scaler_.reset(sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height, AV_PIX_FMT_YUV420P,
                               SWS_BILINEAR, nullptr, nullptr, nullptr));
  if (!scaler_) {
    check(AVERROR(ENOMEM), "converting to YUV");
  }
  const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
  sws_setColorspaceDetails(scaler_.get(), bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
}

void VideoWriter::openAudio() {
  const AudioTrack& track = *options_.audio;
  const AVCodec* codec = avcodec_find_encoder_by_name("aac");
  if (codec == nullptr) {
    throw VideoError::encoderUnavailable("aac");
  }
  audio_.reset(avcodec_alloc_context3(codec));
  if (!audio_) {
    check(AVERROR(ENOMEM), "creating the AAC encoder");
  }
  audio_->sample_fmt = AV_SAMPLE_FMT_FLTP;
  audio_->sample_rate = track.sampleRate;
  av_channel_layout_default(&audio_->ch_layout, track.channels);
  audio_->bit_rate = kAudioBitRatePerChannel * track.channels;
  audio_->time_base = AVRational{1, track.sampleRate};
  if ((format_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
    audio_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  check(avcodec_open2(audio_.get(), codec, nullptr), "opening the AAC encoder");
  audioStream_ = avformat_new_stream(format_.get(), nullptr);
  if (audioStream_ == nullptr) {
    check(AVERROR(ENOMEM), "adding the audio stream");
  }
  check(avcodec_parameters_from_context(audioStream_->codecpar, audio_.get()),
        "describing the audio stream");
  audioStream_->time_base = audio_->time_base;

  sound_.reset(av_frame_alloc());
  if (!sound_) {
    check(AVERROR(ENOMEM), "allocating sound");
  }
  sound_->format = AV_SAMPLE_FMT_FLTP;
  sound_->sample_rate = track.sampleRate;
  sound_->nb_samples = audio_->frame_size;
  check(av_channel_layout_copy(&sound_->ch_layout, &audio_->ch_layout), "allocating sound");
  check(av_frame_get_buffer(sound_.get(), 0), "allocating sound");
  audioFile_.open(track.samples, std::ios::binary);
  if (!audioFile_) {
    check(AVERROR(errno != 0 ? errno : ENOENT), "reading the recorded sound");
  }
}

void VideoWriter::append(const Image& image, double delay) {
  if (!format_) {
    sourceWidth_ = image.width();
    sourceHeight_ = image.height();
    open(sourceWidth_, sourceHeight_);
    summary_.width = video_->width;
    summary_.height = video_->height;
  } else if (image.width() != sourceWidth_ || image.height() != sourceHeight_) {
    throw VideoError::frameSizeChanged(image.width(), image.height(), sourceWidth_, sourceHeight_);
  }
  elapsed_ += delay > 0 && std::isfinite(delay) ? delay : 0;
  const auto end = static_cast<std::int64_t>(std::llround(elapsed_ * 1000));
  if (end <= elapsedMs_) {
    return;  // shown for under a millisecond: the next frame starts at the same time
  }
  fillPicture(image);
  picture_->pts = elapsedMs_;
  durations_[elapsedMs_] = end - elapsedMs_;
  encodeVideo(picture_.get());
  elapsedMs_ = end;
  ++summary_.frames;
  summary_.duration = static_cast<double>(elapsedMs_) / 1000;
  if (audio_) {
    writeAudioUntil(elapsedMs_, false);
  }
}

void VideoWriter::fillPicture(const Image& image) {
  check(av_frame_make_writable(picture_.get()), "allocating a picture");
  const Image pixels = image.toBGRA8();
  const std::uint8_t* planes[1] = {pixels.bytes().data()};
  const int strides[1] = {static_cast<int>(pixels.bytesPerRow())};
  sws_scale(scaler_.get(), planes, strides, 0, sourceHeight_, picture_->data, picture_->linesize);
  // The chroma planes already cover an odd side (they round up); luma repeats its edge.
  std::uint8_t* luma = picture_->data[0];
  const int stride = picture_->linesize[0];
  if (video_->width != sourceWidth_) {
    for (int y = 0; y < sourceHeight_; ++y) {
      luma[y * stride + sourceWidth_] = luma[y * stride + sourceWidth_ - 1];
    }
  }
  if (video_->height != sourceHeight_) {
    std::memcpy(luma + sourceHeight_ * stride, luma + (sourceHeight_ - 1) * stride,
                static_cast<std::size_t>(video_->width));
  }
}

void VideoWriter::encodeVideo(const AVFrame* frame) {
  check(avcodec_send_frame(video_.get(), frame), "encoding a frame");
  drain(video_.get(), videoStream_, true);
}

void VideoWriter::encodeAudio(const AVFrame* frame) {
  check(avcodec_send_frame(audio_.get(), frame), "encoding sound");
  drain(audio_.get(), audioStream_, false);
}

void VideoWriter::drain(AVCodecContext* codec, AVStream* stream, bool isVideo) {
  for (;;) {
    const int received = avcodec_receive_packet(codec, packet_.get());
    if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
      return;
    }
    check(received, isVideo ? "encoding a frame" : "encoding sound");
    if (isVideo) {
      // x264 does not carry durations through.
      const auto shown = durations_.find(packet_->pts);
      if (shown != durations_.end()) {
        packet_->duration = shown->second;
        durations_.erase(shown);
      }
      if (!firstVideoDts_) {
        firstVideoDts_ = packet_->dts;
      }
      if (heldVideo_) {
        writePacket(*heldVideo_, codec, stream);
      }
      heldVideo_.reset(av_packet_clone(packet_.get()));
      if (!heldVideo_) {
        throw VideoError::writerStopped("holding a frame", AVERROR(ENOMEM));
      }
      av_packet_unref(packet_.get());
      continue;
    }
    writePacket(*packet_, codec, stream);
  }
}

void VideoWriter::writePacket(AVPacket& packet, AVCodecContext* codec, AVStream* stream) {
  packet.stream_index = stream->index;
  av_packet_rescale_ts(&packet, codec->time_base, stream->time_base);
  check(av_interleaved_write_frame(format_.get(), &packet), "writing the file");
}

void VideoWriter::writeAudioUntil(std::int64_t end, bool last) {
  const AudioTrack& track = *options_.audio;
  const std::int64_t target = av_rescale(end, track.sampleRate, 1000);
  const std::int64_t firstSample = std::llround(track.start * track.sampleRate);
  const int frameSize = audio_->frame_size;
  const auto channels = static_cast<std::size_t>(track.channels);
  std::vector<float> interleaved;
  while (audioWritten_ < target) {
    const int count = static_cast<int>(std::min<std::int64_t>(frameSize, target - audioWritten_));
    if (count < frameSize && !last) {
      return;
    }
    // Output sample k plays source sample k - firstSample; outside the recording is silence.
    interleaved.assign(static_cast<std::size_t>(count) * channels, 0.0F);
    const std::int64_t from = audioWritten_ - firstSample;
    const std::int64_t skip = std::max<std::int64_t>(0, -from);
    if (skip < count) {
      audioFile_.clear();
      audioFile_.seekg(static_cast<std::streamoff>((from + skip) * track.channels * 4));
      audioFile_.read(reinterpret_cast<char*>(interleaved.data() + skip * track.channels),
                      static_cast<std::streamsize>((count - skip) * track.channels * 4));
    }
    check(av_frame_make_writable(sound_.get()), "allocating sound");
    sound_->nb_samples = count;
    for (std::size_t c = 0; c < channels; ++c) {
      auto* plane = reinterpret_cast<float*>(sound_->data[c]);
      for (int i = 0; i < count; ++i) {
        plane[i] = interleaved[static_cast<std::size_t>(i) * channels + c];
      }
    }
    sound_->pts = audioWritten_;
    encodeAudio(sound_.get());
    audioWritten_ += count;
  }
}

void VideoWriter::finish() {
  if (!format_) {
    throw MuxError::noFramesAppended();
  }
  encodeVideo(nullptr);
  if (heldVideo_) {
    // The last frame is shown until the time the frames add up to (a final pause included).
    const std::int64_t end = elapsedMs_ + std::min<std::int64_t>(0, firstVideoDts_.value_or(0));
    heldVideo_->duration = std::max<std::int64_t>(1, end - heldVideo_->dts);
    writePacket(*heldVideo_, video_.get(), videoStream_);
    heldVideo_.reset();
  }
  if (audio_) {
    writeAudioUntil(elapsedMs_, true);
    encodeAudio(nullptr);
  }
  check(av_write_trailer(format_.get()), "finishing the file");
  check(format_->pb->error, "writing the file");
  check(avio_closep(&format_->pb), "closing the file");
}

}  // namespace brimble
