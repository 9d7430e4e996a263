#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "BrimbleCore/Encoding/ClipEncoder.h"
#include "BrimbleCore/Encoding/CompressedFrameStore.h"
#include "BrimbleCore/Encoding/FramePrefetch.h"
#include "BrimbleCore/Encoding/Image.h"

namespace brimble {

/// What is drawn over a recording's frames as they are encoded (the desktop app's marks on a
/// window recording). Both are called from worker threads, possibly several at once.
struct RecordingOverlay {
  /// Frame `index`, decoded, with what is drawn at its time.
  std::function<Image(const Image& frame, int index)> paint{};
  /// Whether what is drawn differs between frame `index` and the frame before, which makes a
  /// frame whose compressed bytes repeat the one before no repeat.
  std::function<bool(int index)> changesAt{};
};

/// A recording as a sequence for ClipEncoder::encodeSequence or SizeBudgetEncoder::encode.
struct RecordingSequence {
  int count = 0;
  /// Decodes (and paints) frame `index`; shares the frame store.
  FrameSupplier frameAt;
  SequenceOptions options;
};

/// The encode step of a finished screen recording, one for `brimble record` and the desktop
/// app: its frames play at the rate they were taken, and screen content gets the tuning it
/// needs. Stateless; any thread.
class RecordingEncoder {
 public:
  /// The rate to play `frameCount` frames recorded over `recordedSeconds` at: the count over the
  /// seconds, rounded, from 1 up to `promisedFPS`. Ticks skipped on a busy machine (or frames
  /// dropped for disk space) leave fewer frames than the rate promised; played at the rate they
  /// were taken, the clip lasts as long as the recording did.
  static int playbackFPS(int frameCount, double recordedSeconds, int promisedFPS);

  /// The frames of `store` ready to write. `options.fps` is the rate the recorder was asked
  /// for: the sequence plays at playbackFPS instead (the video writer is told the same rate),
  /// tells repeated frames by every pixel, and shares histogram palettes where that stays
  /// faithful. Frames whose compressed bytes repeat the frame before, unless the overlay changes
  /// there, are merged without decoding. The other options are kept as given.
  static RecordingSequence prepare(std::shared_ptr<const CompressedFrameStore> store,
                                   double recordedSeconds, SequenceOptions options,
                                   RecordingOverlay overlay = {});

  /// `prepare`, then written to `output` in one pass. Throws what ClipEncoder throws.
  static EncodeSummary encode(std::shared_ptr<const CompressedFrameStore> store,
                              double recordedSeconds, const std::filesystem::path& output,
                              SequenceOptions options);
};

}  // namespace brimble
