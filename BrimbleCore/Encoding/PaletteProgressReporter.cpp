#include "BrimbleCore/Encoding/PaletteProgressReporter.h"

namespace brimble {

void PaletteProgressReporter::advance(int by) {
  {
    std::scoped_lock lock(countMutex_);
    done_ += by;
    const int percent = total_ < 1 ? 100 : done_ * 100 / total_;
    if (percent == lastReportedPercent_ || !callback_) {
      return;
    }
    lastReportedPercent_ = percent;
    pending_ = done_;
    if (reporting_) {
      return;
    }
    reporting_ = true;
  }
  // The callback runs unlocked, so it may take its time (or wait for other workers) without
  // stalling them; only one thread reports at a time, which keeps the reports in order.
  for (;;) {
    int done = 0;
    {
      std::scoped_lock lock(countMutex_);
      if (!pending_) {
        reporting_ = false;
        return;
      }
      done = *pending_;
      pending_.reset();
    }
    try {
      callback_(done, total_);
    } catch (...) {
      std::scoped_lock lock(countMutex_);
      reporting_ = false;
      throw;
    }
  }
}

}  // namespace brimble
