#include "Brimble/Recording/ClipHandover.h"

#include <exception>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "BrimbleCore/Support/Log.h"

namespace brimble {

namespace fs = std::filesystem;

ClipHandover::ClipHandover(RecordingView& view, ClipDelivery& delivery,
                           const CaptureHistory& history, std::function<AppSettings()> settings)
    : view_(view), delivery_(delivery), history_(history), settings_(std::move(settings)) {}

void ClipHandover::beginAppend(AppendSession session) {
  pendingAppend_ = std::move(session);
}

void ClipHandover::cancelAppend() {
  if (pendingAppend_) {
    const auto cancelled = std::move(pendingAppend_->onCancelled);
    pendingAppend_.reset();
    if (cancelled) {
      cancelled();
    }
  }
}

EncodingSettings ClipHandover::encodingSettings() const {
  EncodingSettings encoding = effectiveEncoding(settings_());
  if (pendingAppend_) {
    encoding.format = pendingAppend_->format;
    encoding.maxFileSizeKB = 0;
  }
  return encoding;
}

void ClipHandover::deliver(Delivery delivery, const fs::path& file, OutputFormat format,
                           int frames) {
  try {
    handOver(delivery, file, format, frames);
  } catch (const std::exception& deliveryError) {
    // The clip itself is safe in the library folder; only the hand-over failed. It goes into
    // the library so that it can be found again.
    logLine(std::string("Brimble: delivery failed: ") + deliveryError.what());
    try {
      if (fs::exists(file)) {
        history_.add(file);
      }
    } catch (const std::exception& indexError) {
      logLine(std::string("Brimble: could not update the library: ") + indexError.what());
    }
    view_.showMessage(std::string("The clip was kept at ") + file.string() +
                          " but could not be delivered: " + deliveryError.what(),
                      MessageKind::error);
  }
}

void ClipHandover::handOver(Delivery delivery, const fs::path& file, OutputFormat format,
                            int frames) {
  if (pendingAppend_) {
    const auto ready = std::move(pendingAppend_->onSegmentReady);
    pendingAppend_.reset();
    logLine(fmt::format("Brimble: recorded {} frames to append", frames));
    view_.showMessage(fmt::format("{} frames recorded to add to the clip.", frames),
                      MessageKind::information);
    if (ready) {
      ready(file);
    }
    return;
  }
  const AppSettings settings = settings_();
  fs::path kept = file;
  switch (delivery) {
    case Delivery::copy: {
      history_.add(file);
      delivery_.copyToClipboard(file, format);
      logLine(fmt::format("Brimble: GIF copied to clipboard ({} bytes, {} frames)",
                          fs::file_size(file), frames));
      view_.showMessage(fmt::format("GIF copied to clipboard. {} frames.", frames),
                        MessageKind::information);
      break;
    }
    case Delivery::save: {
      isSavingToDisk_ = true;
      const fs::path suggested = settings.defaultSaveLocation / file.filename();
      const std::optional<fs::path> chosen = delivery_.chooseSaveLocation(suggested, format);
      if (chosen) {
        fs::copy_file(file, *chosen, fs::copy_options::overwrite_existing);
        std::error_code ignored;
        fs::remove(file, ignored);
        kept = *chosen;
        history_.add(kept);
        view_.showMessage(fmt::format("GIF saved. {} frames.", frames), MessageKind::information);
      } else {
        // Cancelling the dialog must not lose the recording: it stays in the library.
        history_.add(file);
      }
      isSavingToDisk_ = false;
      break;
    }
    case Delivery::share:
      history_.add(file);
      view_.showMessage(fmt::format("GIF ready to share. {} frames.", frames),
                        MessageKind::information);
      delivery_.share(file);
      break;
  }
  lastClip_ = kept;
  if (delivery == Delivery::copy && settings.showPreviewAfterCapture) {
    delivery_.openPreview(kept);
  }
}

void ClipHandover::reportFailure(Delivery delivery, OutputFormat format, const std::string& error) {
  cancelAppend();
  const char* operation = delivery == Delivery::copy   ? "stopAndCopy"
                          : delivery == Delivery::save ? "stopAndSaveToFile"
                                                       : "stopAndShare";
  logLine(fmt::format("Brimble: encoding error ({}): {}", operation, error));
  view_.showMessage(
      isVideo(format) ? "Failed to encode the video. The video writer stopped before the file was "
                        "finished, so nothing was saved."
                      : "Failed to encode GIF. The recording may have been too short or contained "
                        "no frames.",
      MessageKind::error);
}

}  // namespace brimble
