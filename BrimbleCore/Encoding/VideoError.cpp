#include "BrimbleCore/Encoding/VideoError.h"

#include <fmt/format.h>

extern "C" {
#include <libavutil/error.h>
}

namespace brimble {

VideoError VideoError::encoderUnavailable(const std::string& encoder) {
  return {Code::encoderUnavailable,
          "the " + encoder +
              " encoder is not available in this libavcodec; install a build "
              "with it (Debian's libavcodec59 has it)"};
}

VideoError VideoError::invalidSetting(const std::string& setting) {
  return {Code::invalidSetting, setting};
}

VideoError VideoError::writerStopped(const std::string& step, int averror) {
  char reason[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(averror, reason, sizeof reason);
  return {Code::writerStopped,
          fmt::format("Failed to encode the video. The video writer stopped before the file was "
                      "finished, so nothing was saved. ({}: {})",
                      step, reason)};
}

VideoError VideoError::frameSizeChanged(int width, int height, int firstWidth, int firstHeight) {
  return {Code::frameSizeChanged,
          fmt::format("a video frame is {}x{} but the first was {}x{}; a video keeps one size",
                      width, height, firstWidth, firstHeight)};
}

}  // namespace brimble
