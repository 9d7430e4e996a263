#include "BrimbleCore/Encoding/LibavHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace brimble {

void AVCodecContextCloser::operator()(AVCodecContext* context) const noexcept {
  avcodec_free_context(&context);
}

void AVFormatContextCloser::operator()(AVFormatContext* context) const noexcept {
  if (context->pb != nullptr && (context->oformat->flags & AVFMT_NOFILE) == 0) {
    avio_closep(&context->pb);
  }
  avformat_free_context(context);
}

void AVFrameCloser::operator()(AVFrame* frame) const noexcept {
  av_frame_free(&frame);
}

void AVPacketCloser::operator()(AVPacket* packet) const noexcept {
  av_packet_free(&packet);
}

void SwsContextCloser::operator()(SwsContext* context) const noexcept {
  sws_freeContext(context);
}

}  // namespace brimble
