#include "cli/ProgressBar.h"

#include <algorithm>

#include <fmt/format.h>
#include <unistd.h>

namespace brimble::cli {

ProgressBar::ProgressBar(std::FILE* out) : out_(out), enabled_(::isatty(::fileno(out)) == 1) {}

ProgressBar::~ProgressBar() {
  finish();
}

void ProgressBar::update(std::string_view phase, int done, int total) {
  if (!enabled_) {
    return;
  }
  std::scoped_lock lock(drawMutex_);
  const auto now = Clock::now();
  if (phase != phase_) {
    phase_ = phase;
    phaseStart_ = now;
  } else if (done < total && now - lastDraw_ < std::chrono::milliseconds(50)) {
    return;
  }
  lastDraw_ = now;
  constexpr int kWidth = 30;
  const double fraction = total > 0 ? std::clamp(static_cast<double>(done) / total, 0.0, 1.0) : 0;
  const auto filled = static_cast<int>(fraction * kWidth);
  const double seconds = std::chrono::duration<double>(now - phaseStart_).count();
  const std::string rate = seconds > 0.05 ? fmt::format("{:.1f}/s", done / seconds) : "";
  fmt::print(out_, "\r\x1b[K{:<8} [{}{}] {}/{} {}", phase_, std::string(filled, '#'),
             std::string(kWidth - filled, ' '), done, total, rate);
  std::fflush(out_);
  drawn_ = true;
}

void ProgressBar::finish() {
  if (!enabled_) {
    return;
  }
  std::scoped_lock lock(drawMutex_);
  if (drawn_) {
    fmt::print(out_, "\r\x1b[K");
    std::fflush(out_);
    drawn_ = false;
  }
  phase_.clear();
}

}  // namespace brimble::cli
