#include "BrimbleCore/Encoding/PaletteProgressReporter.h"

namespace brimble {

void PaletteProgressReporter::advance(int by) {
  std::scoped_lock lock(mutex_);
  done_ += by;
  const int percent = total_ < 1 ? 100 : done_ * 100 / total_;
  if (percent != lastReportedPercent_) {
    lastReportedPercent_ = percent;
    if (callback_) {
      callback_(done_, total_);
    }
  }
}

}  // namespace brimble
