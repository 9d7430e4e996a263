#pragma once

#include <memory>

// libav's structs, declared here so that headers need no libav includes.
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace brimble {

struct AVCodecContextCloser {
  void operator()(AVCodecContext* context) const noexcept;  // avcodec_free_context
};
/// An output context with its file: closing it closes the file (avio_closep) and frees the
/// context, without writing a trailer.
struct AVFormatContextCloser {
  void operator()(AVFormatContext* context) const noexcept;
};
struct AVFrameCloser {
  void operator()(AVFrame* frame) const noexcept;  // av_frame_free
};
struct AVPacketCloser {
  void operator()(AVPacket* packet) const noexcept;  // av_packet_free
};
struct SwsContextCloser {
  void operator()(SwsContext* context) const noexcept;  // sws_freeContext
};

using AVCodecContextPtr = std::unique_ptr<AVCodecContext, AVCodecContextCloser>;
using AVFormatContextPtr = std::unique_ptr<AVFormatContext, AVFormatContextCloser>;
using AVFramePtr = std::unique_ptr<AVFrame, AVFrameCloser>;
using AVPacketPtr = std::unique_ptr<AVPacket, AVPacketCloser>;
using SwsContextPtr = std::unique_ptr<SwsContext, SwsContextCloser>;

}  // namespace brimble
