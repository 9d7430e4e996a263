#include "BrimbleCore/Encoding/MuxError.h"

namespace brimble {

MuxError MuxError::unexpectedLayout(std::string message) {
  std::string description = message;
  return {Code::unexpectedLayout, description, std::move(message), 0};
}

MuxError MuxError::unsupportedColorType(int colorType) {
  return {Code::unsupportedColorType, "unsupported PNG color type " + std::to_string(colorType), "",
          colorType};
}

MuxError MuxError::inconsistentCanvas() {
  return {Code::inconsistentCanvas, "frame size differs from the first frame's", "", 0};
}

MuxError MuxError::encoderFailed() {
  return {Code::encoderFailed, "the image encoder could not encode the frame", "", 0};
}

MuxError MuxError::noFramesAppended() {
  return {Code::noFramesAppended, "no frames were appended", "", 0};
}

}  // namespace brimble
