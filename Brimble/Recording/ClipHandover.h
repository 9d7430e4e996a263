#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "Brimble/Recording/ClipDelivery.h"
#include "Brimble/Recording/RecordingView.h"
#include "Brimble/Settings/AppSettings.h"
#include "BrimbleCore/Encoding/OutputFormat.h"
#include "BrimbleCore/Support/CaptureHistory.h"

namespace brimble {

/// A recording whose result goes to an existing clip ("record more" in the editor) instead of
/// the clipboard, a file or the share handler.
struct AppendSession {
  OutputFormat format = OutputFormat::gif;
  /// Called with the finished segment's file.
  std::function<void(const std::filesystem::path&)> onSegmentReady;
  /// Called when the session ends without a segment (cancelled or failed).
  std::function<void()> onCancelled;
};

/// Hands an encoded clip over: to a pending append session, or to the clipboard, a save dialog
/// or the desktop's handler, and into the library; tells the user how that went, or why the
/// encode failed. Main thread only.
class ClipHandover {
 public:
  /// Where a clip goes; each stop of a recording names one.
  enum class Delivery { copy, save, share };

  /// Everything referenced must outlive the handover. `settings` is read at each hand-over, so
  /// changes apply to the next clip.
  ClipHandover(RecordingView& view, ClipDelivery& delivery, const CaptureHistory& history,
               std::function<AppSettings()> settings);

  /// The next clip goes to `session` instead of a delivery.
  void beginAppend(AppendSession session);
  /// Tells a pending append session it gets nothing, and forgets it.
  void cancelAppend();
  /// How the clip being recorded is to be encoded: the preferences, except that a segment for
  /// an append session takes its clip's format and no size budget, to match the clip it joins.
  EncodingSettings encodingSettings() const;

  /// Hands over the encoded clip `file` (in the library folder) of `frames` frames. A hand-over
  /// that fails is told, and the clip is kept in the library.
  void deliver(Delivery delivery, const std::filesystem::path& file, OutputFormat format,
               int frames);
  /// Logs why the encode for `delivery` failed, tells the user, and ends a pending append
  /// session.
  void reportFailure(Delivery delivery, OutputFormat format, const std::string& error);

  /// True while a save writes its file.
  bool isSavingToDisk() const noexcept { return isSavingToDisk_; }
  /// The last clip delivered, where it was kept.
  const std::optional<std::filesystem::path>& lastClip() const noexcept { return lastClip_; }

 private:
  void handOver(Delivery delivery, const std::filesystem::path& file, OutputFormat format,
                int frames);

  RecordingView& view_;
  ClipDelivery& delivery_;
  const CaptureHistory& history_;
  const std::function<AppSettings()> settings_;

  std::optional<AppendSession> pendingAppend_;
  bool isSavingToDisk_ = false;
  std::optional<std::filesystem::path> lastClip_;
};

}  // namespace brimble
