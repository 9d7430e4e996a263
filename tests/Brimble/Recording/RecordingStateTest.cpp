#include "Brimble/Recording/RecordingState.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <QtCore/qnamespace.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/FakeClock.h"
#include "tests/Support/FakeSessionServices.h"
#include "tests/Support/GifReader.h"
#include "tests/Support/LogCapture.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

/// A session over fakes, with the real encoder writing into a temporary library folder.
struct Session {
  testing::TempDirectory folder;
  testing::FakeRecordingView view;
  testing::FakeClipDelivery delivery;
  testing::FakeSessionScheduler scheduler;
  testing::FakeClock clock;
  testing::FakeRecorderScript recorder;
  AppSettings settings;
  CaptureHistory history{folder / "history.json"};
  EncodingJob::SequenceWriter encoder = [](int count, const FrameSupplier& frameAt,
                                           const fs::path& output, const SequenceOptions& options,
                                           std::uint64_t budget,
                                           const SizeBudgetEncoder::PassStarted& passStarted) {
    return SizeBudgetEncoder::encode(count, frameAt, output, options, budget, passStarted);
  };
  RecordingState state{RecordingState::Services{
      view, delivery, scheduler, clock,
      [this] { return std::make_unique<testing::FakeSessionRecorder>(recorder); },
      [this] { return settings; }, history, folder / "captures",
      [this](int count, const FrameSupplier& frameAt, const fs::path& output,
             const SequenceOptions& options, std::uint64_t budget,
             const SizeBudgetEncoder::PassStarted& passStarted) {
        return encoder(count, frameAt, output, options, budget, passStarted);
      }}};
  std::vector<RecordingPhase> phases;

  Session() {
    settings.countdownDelay = 3;
    settings.defaultSaveLocation = folder.path();
    state.onStateChange = [this](RecordingPhase phase) { phases.push_back(phase); };
  }

  /// Hotkey, a region drawn, Space, the countdown run out: recording.
  void recordRegion(const ScreenRect& region = {100, 50, 320, 200}) {
    state.handleHotkeyTrigger();
    scheduler.runPosted();
    state.regionSelected(region);
    state.handleKey(Qt::Key_Space, false);
    for (int i = 0; i < settings.countdownDelay; ++i) {
      scheduler.fireTimers();
    }
  }
};

TEST(RecordingState, RegionSessionGoesFromHotkeyToAGIFOnTheClipboardAndInTheLibrary) {
  Session session;
  testing::LogCapture log;
  session.state.handleHotkeyTrigger();
  // The hotkey only schedules the selection, so the key event that triggered it finishes first.
  EXPECT_EQ(session.state.phase(), RecordingPhase::idle);
  session.scheduler.runPosted();
  EXPECT_EQ(session.state.phase(), RecordingPhase::selecting);

  session.state.regionSelected({100, 50, 320, 200});
  EXPECT_EQ(session.state.phase(), RecordingPhase::ready);
  session.state.adjustRegion({110, 60, 300, 180});
  EXPECT_TRUE(session.state.handleKey(Qt::Key_Space, false));
  EXPECT_EQ(session.state.phase(), RecordingPhase::countdown);
  session.scheduler.fireTimers();
  session.scheduler.fireTimers();
  EXPECT_EQ(session.state.phase(), RecordingPhase::countdown);
  session.scheduler.fireTimers();
  EXPECT_EQ(session.state.phase(), RecordingPhase::recording);
  session.clock.advance(2s);
  session.scheduler.fireTimers();

  EXPECT_TRUE(session.state.handleKey(Qt::Key_Return, false));
  EXPECT_EQ(session.state.phase(), RecordingPhase::encoding);
  session.scheduler.runBackground();
  EXPECT_EQ(session.state.phase(), RecordingPhase::idle);

  EXPECT_THAT(session.phases, ElementsAre(RecordingPhase::selecting, RecordingPhase::ready,
                                          RecordingPhase::countdown, RecordingPhase::recording,
                                          RecordingPhase::encoding, RecordingPhase::idle));
  EXPECT_THAT(session.view.calls,
              ElementsAre("overlay", "panel ready 100,50 320x200", "panel ready 110,60 300x180",
                          "hide selection", "panel countdown 110,60 300x180",
                          "countdown 3 (3 seconds remaining until recording starts)",
                          "countdown 2 (2 seconds remaining until recording starts)",
                          "countdown 1 (1 seconds remaining until recording starts)",
                          "panel recording 110,60 300x180", "timer 00:00 (0 minutes 0 seconds)",
                          "timer 00:02 (0 minutes 2 seconds)", "dismiss panel", "hide selection"));
  EXPECT_THAT(
      session.view.announcements,
      ElementsAre("Select a screen region to record",
                  "Region selected. Resize or move the selection, then press Start or Space to "
                  "begin recording.",
                  "Recording starts shortly. Press Escape to cancel or Space to skip.",
                  "Recording started. Space to pause, S to save, Return to stop.", "Encoding GIF"));
  EXPECT_THAT(session.recorder.events,
              ElementsAre("start region 110,60 300x180 window 0 at 24 fps with cursor", "stop",
                          "destroyed"));

  ASSERT_TRUE(session.delivery.delivered);
  const fs::path clip = *session.delivery.delivered;
  EXPECT_THAT(session.delivery.calls,
              ElementsAre("clipboard " + clip.filename().string() + " image/gif"));
  EXPECT_EQ(clip.parent_path(), session.folder / "captures");
  const auto gif = testing::decodeGIFFile(clip);
  ASSERT_TRUE(gif);
  EXPECT_EQ(gif->frames.size(), 6u);  // six greys, none merged
  EXPECT_THAT(session.view.messages, ElementsAre("info: GIF copied to clipboard. 6 frames."));
  EXPECT_THAT(log.lines(), Contains(fmt::format("Brimble: GIF copied to clipboard ({} bytes, 6 "
                                                "frames)",
                                                fs::file_size(clip))));
  const auto entries = session.history.entries();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].path, clip);
  EXPECT_EQ(entries[0].fileSize, fs::file_size(clip));
}

TEST(RecordingState, KeysActByPhaseAndOthersPassOn) {
  struct Case {
    const char* name;
    int key;
    bool shift;
    RecordingPhase after;
    const char* delivery;  // the first delivery call, "" for none
  };
  // Each case starts in `recording` (the keys of a running session).
  const std::vector<Case> recordingCases = {
      {"Return stops and copies", Qt::Key_Return, false, RecordingPhase::idle, "clipboard"},
      {"Enter stops and copies", Qt::Key_Enter, false, RecordingPhase::idle, "clipboard"},
      {"S saves", Qt::Key_S, false, RecordingPhase::idle, "save dialog"},
      {"Shift-S shares", Qt::Key_S, true, RecordingPhase::idle, "share"},
      {"Space pauses", Qt::Key_Space, false, RecordingPhase::paused, ""},
      {"Escape discards", Qt::Key_Escape, false, RecordingPhase::idle, ""},
  };
  for (const Case& c : recordingCases) {
    SCOPED_TRACE(c.name);
    Session session;
    session.recordRegion();
    ASSERT_EQ(session.state.phase(), RecordingPhase::recording);
    EXPECT_TRUE(session.state.handleKey(c.key, c.shift));
    session.scheduler.runBackground();
    EXPECT_EQ(session.state.phase(), c.after);
    if (*c.delivery == '\0') {
      EXPECT_TRUE(session.delivery.calls.empty());
    } else {
      ASSERT_FALSE(session.delivery.calls.empty());
      EXPECT_THAT(session.delivery.calls[0], HasSubstr(c.delivery));
    }
  }

  Session session;
  session.recordRegion();
  EXPECT_FALSE(session.state.handleKey(Qt::Key_B, false));
  session.state.handleKey(Qt::Key_Space, false);
  ASSERT_EQ(session.state.phase(), RecordingPhase::paused);
  EXPECT_TRUE(session.state.handleKey(Qt::Key_Space, false));
  EXPECT_EQ(session.state.phase(), RecordingPhase::recording);
  EXPECT_EQ(session.recorder.events[1], "pause");
  EXPECT_EQ(session.recorder.events[2], "resume");

  // No session, no monitor: every key passes on.
  Session idle;
  EXPECT_FALSE(idle.state.handleKey(Qt::Key_Return, false));
  EXPECT_FALSE(idle.state.handleKey(Qt::Key_Escape, false));
  EXPECT_EQ(idle.state.phase(), RecordingPhase::idle);

  // In ready, Return starts as Space does; Escape gives up the region.
  Session ready;
  ready.state.startSelection();
  ready.state.regionSelected({0, 0, 100, 100});
  EXPECT_TRUE(ready.state.handleKey(Qt::Key_Escape, false));
  EXPECT_EQ(ready.state.phase(), RecordingPhase::idle);
  EXPECT_THAT(ready.view.calls,
              ElementsAre("overlay", "panel ready 0,0 100x100", "hide selection", "dismiss panel"));
}

TEST(RecordingState, CountdownIsCancelledByEscapeAndSkippedBySpaceOrReturn) {
  Session escape;
  escape.state.startSelection();
  escape.state.regionSelected({0, 0, 200, 100});
  escape.state.startFromReady();
  ASSERT_EQ(escape.state.phase(), RecordingPhase::countdown);
  EXPECT_TRUE(escape.state.handleKey(Qt::Key_Escape, false));
  EXPECT_EQ(escape.state.phase(), RecordingPhase::idle);
  EXPECT_EQ(escape.scheduler.liveTimers(), 0u);
  escape.scheduler.fireTimers();
  EXPECT_TRUE(escape.recorder.events.empty());  // the stream never started

  for (int key : {Qt::Key_Space, Qt::Key_Return}) {
    Session skip;
    skip.settings.countdownDelay = 10;
    skip.state.startSelection();
    skip.state.regionSelected({0, 0, 200, 100});
    skip.state.startFromReady();
    EXPECT_TRUE(skip.state.handleKey(key, false));
    EXPECT_EQ(skip.state.phase(), RecordingPhase::recording);
    EXPECT_EQ(skip.recorder.events.size(), 1u);
    // The countdown timer is gone: later ticks only move the recording timer.
    skip.scheduler.fireTimers();
    EXPECT_EQ(skip.recorder.events.size(), 1u);
    EXPECT_EQ(skip.state.phase(), RecordingPhase::recording);
  }

  Session none;
  none.settings.countdownDelay = 0;
  none.state.startSelection();
  none.state.regionSelected({0, 0, 200, 100});
  none.state.startFromReady();
  EXPECT_EQ(none.state.phase(), RecordingPhase::recording);
  EXPECT_THAT(none.phases, ElementsAre(RecordingPhase::selecting, RecordingPhase::ready,
                                       RecordingPhase::recording));
}

TEST(RecordingState, HotkeyCancelsBeforeRecordingStopsWhileRecordingAndCancelsEncoding) {
  Session selecting;
  selecting.state.handleHotkeyTrigger();
  selecting.scheduler.runPosted();
  selecting.state.handleHotkeyTrigger();
  EXPECT_EQ(selecting.state.phase(), RecordingPhase::idle);

  Session countdown;
  countdown.state.startSelection();
  countdown.state.regionSelected({0, 0, 64, 64});
  countdown.state.startFromReady();
  countdown.state.handleHotkeyTrigger();
  EXPECT_EQ(countdown.state.phase(), RecordingPhase::idle);

  Session recording;
  recording.recordRegion();
  recording.state.handleHotkeyTrigger();
  EXPECT_EQ(recording.state.phase(), RecordingPhase::encoding);
  recording.scheduler.runBackground();
  EXPECT_EQ(recording.delivery.calls.size(), 1u);

  Session encoding;
  encoding.recordRegion();
  encoding.state.stopRecording();
  ASSERT_EQ(encoding.scheduler.pendingBackground(), 1u);
  encoding.state.handleHotkeyTrigger();
  EXPECT_EQ(encoding.state.phase(), RecordingPhase::idle);
  // The encode finishes later (it noticed the stop or ran to its end): nothing is delivered and
  // nothing is left in the library folder.
  encoding.scheduler.runBackground();
  EXPECT_EQ(encoding.state.phase(), RecordingPhase::idle);
  EXPECT_TRUE(encoding.delivery.calls.empty());
  EXPECT_TRUE(encoding.view.messages.empty());
  EXPECT_TRUE(encoding.history.entries().empty());
  EXPECT_TRUE(!fs::exists(encoding.folder / "captures") ||
              fs::is_empty(encoding.folder / "captures"));
}

TEST(RecordingState, PausesAreLeftOutOfTheTimerAndAnnounced) {
  Session session;
  session.recordRegion();
  session.clock.advance(10s);
  session.state.togglePause();
  session.clock.advance(20s);
  session.scheduler.fireTimers();
  EXPECT_EQ(session.view.calls.back(), "timer 00:10 (0 minutes 10 seconds)");
  session.state.togglePause();
  session.clock.advance(65s);
  session.scheduler.fireTimers();
  EXPECT_EQ(session.view.calls.back(), "timer 01:15 (1 minutes 15 seconds)");
  EXPECT_DOUBLE_EQ(session.state.elapsedRecordingTime(), 75);
  EXPECT_THAT(session.view.calls, Contains("look resume"));
  EXPECT_THAT(session.view.calls, Contains("look pause"));
  const auto& said = session.view.announcements;
  ASSERT_GE(said.size(), 2u);
  EXPECT_EQ(said[said.size() - 2], "Recording paused");
  EXPECT_EQ(said.back(), "Recording resumed");
  EXPECT_EQ(RecordingState::timerText(3599), "59:59");
  EXPECT_EQ(RecordingState::timerText(3600), "60:00");
}

TEST(RecordingState, MaximumDurationInactivityAndFullDiskEndWithTheClipboardCopy) {
  Session longOne;
  longOne.settings.maxRecordingDuration = 30;
  longOne.recordRegion();
  longOne.clock.advance(29s);
  longOne.scheduler.fireTimers();
  EXPECT_EQ(longOne.state.phase(), RecordingPhase::recording);
  longOne.clock.advance(1s);
  longOne.scheduler.fireTimers();
  EXPECT_EQ(longOne.state.phase(), RecordingPhase::encoding);
  longOne.scheduler.runBackground();
  ASSERT_EQ(longOne.delivery.calls.size(), 1u);
  EXPECT_THAT(longOne.delivery.calls[0], HasSubstr("clipboard"));

  Session idle;
  idle.settings.inactivityTimeout = 5;
  idle.recordRegion();
  idle.clock.advance(3s);
  idle.recorder.lastChange = idle.clock.now();  // the picture changed at 3 s
  idle.clock.advance(4s);
  idle.scheduler.fireTimers();
  EXPECT_EQ(idle.state.phase(), RecordingPhase::recording);
  // While paused nothing changes on purpose: no timeout.
  idle.state.togglePause();
  idle.clock.advance(10s);
  idle.scheduler.fireTimers();
  EXPECT_EQ(idle.state.phase(), RecordingPhase::paused);
  idle.state.togglePause();
  idle.scheduler.fireTimers();
  EXPECT_EQ(idle.state.phase(), RecordingPhase::encoding);
  idle.scheduler.runBackground();
  EXPECT_THAT(idle.delivery.calls[0], HasSubstr("clipboard"));

  Session disk;
  disk.recordRegion();
  disk.recorder.diskCritical = true;
  disk.recorder.lostFrames = 2;
  disk.scheduler.fireTimers();
  disk.scheduler.runBackground();
  EXPECT_THAT(disk.view.messages,
              ElementsAre("warning: Recording stopped: your disk is almost full. Frames captured "
                          "so far were kept.",
                          "warning: Some frames were lost while recording because the disk "
                          "filled up.",
                          "info: GIF copied to clipboard. 6 frames."));
}

TEST(RecordingState, WindowAndFullScreenSkipTheRegionAndAnnounceTheirMode) {
  Session window;
  window.settings.countdownDelay = 0;
  window.state.handleWindowTrigger();
  window.scheduler.runPosted();
  EXPECT_EQ(window.state.phase(), RecordingPhase::selecting);
  window.state.startWindow(0x1400007);
  EXPECT_EQ(window.state.phase(), RecordingPhase::recording);
  EXPECT_THAT(window.view.announcements,
              ElementsAre("Click a window to record",
                          "Recording window. Space to pause, S to save, Return to stop."));
  EXPECT_EQ(window.recorder.events[0],
            "start window 0,0 0x0 window 20971527 at 24 fps with cursor");

  Session full;
  full.settings.showCursor = false;
  full.settings.frameRate = 12;
  full.state.handleFullScreenTrigger();
  full.scheduler.runPosted();
  EXPECT_EQ(full.state.phase(), RecordingPhase::countdown);
  full.scheduler.fireTimers();
  full.scheduler.fireTimers();
  full.scheduler.fireTimers();
  EXPECT_EQ(full.state.phase(), RecordingPhase::recording);
  EXPECT_EQ(full.view.announcements.back(),
            "Recording full screen. Space to pause, S to save, Return to stop.");
  EXPECT_EQ(full.recorder.events[0], "start fullScreen 0,0 0x0 window 0 at 12 fps");
  // Triggers outside idle do nothing.
  full.state.handleWindowTrigger();
  full.scheduler.runPosted();
  EXPECT_EQ(full.state.phase(), RecordingPhase::recording);

  Session autoStart;
  autoStart.settings.autoStartAfterRegionSelection = true;
  autoStart.settings.countdownDelay = 0;
  autoStart.state.startSelection();
  autoStart.state.regionSelected({5, 6, 70, 80});
  EXPECT_EQ(autoStart.state.phase(), RecordingPhase::recording);
  EXPECT_THAT(autoStart.phases, ElementsAre(RecordingPhase::selecting, RecordingPhase::recording));
}

TEST(RecordingState, SaveAndShareDeliverTheFileWithTheirOwnTexts) {
  Session save;
  save.delivery.saveAnswer = save.folder / "mine.gif";
  save.recordRegion();
  save.state.stopAndSaveToFile();
  save.scheduler.runBackground();
  EXPECT_THAT(save.delivery.calls, ElementsAre("save dialog at " + save.folder.path().string()));
  ASSERT_TRUE(fs::exists(save.folder / "mine.gif"));
  EXPECT_EQ(testing::decodeGIFFile(save.folder / "mine.gif")->frames.size(), 6u);
  EXPECT_THAT(save.view.messages, ElementsAre("info: GIF saved. 6 frames."));
  EXPECT_EQ(save.history.entries().at(0).path, save.folder / "mine.gif");
  EXPECT_FALSE(save.state.isSavingToDisk());

  // A save that cannot be written is told, and the clip stays in the library.
  Session unwritable;
  unwritable.delivery.saveAnswer = unwritable.folder / "no such folder" / "clip.gif";
  unwritable.recordRegion();
  unwritable.state.stopAndSaveToFile();
  unwritable.scheduler.runBackground();
  ASSERT_EQ(unwritable.view.messages.size(), 1u);
  EXPECT_THAT(unwritable.view.messages[0], HasSubstr("error: The clip was kept at "));
  ASSERT_EQ(unwritable.history.entries().size(), 1u);
  EXPECT_TRUE(fs::exists(unwritable.history.entries()[0].path));
  EXPECT_EQ(unwritable.state.phase(), RecordingPhase::idle);

  // Cancelling the save dialog keeps the clip in the library rather than losing it.
  Session cancelled;
  cancelled.recordRegion();
  cancelled.state.stopAndSaveToFile();
  cancelled.scheduler.runBackground();
  ASSERT_EQ(cancelled.history.entries().size(), 1u);
  EXPECT_TRUE(fs::exists(cancelled.history.entries()[0].path));

  Session share;
  share.recordRegion();
  share.state.stopAndShare();
  share.scheduler.runBackground();
  ASSERT_EQ(share.delivery.calls.size(), 1u);
  EXPECT_THAT(share.delivery.calls[0], HasSubstr("share Brimble "));
  EXPECT_THAT(share.view.messages, ElementsAre("info: GIF ready to share. 6 frames."));

  Session preview;
  preview.settings.showPreviewAfterCapture = true;
  preview.recordRegion();
  preview.state.stopRecording();
  preview.scheduler.runBackground();
  ASSERT_EQ(preview.delivery.calls.size(), 2u);
  EXPECT_THAT(preview.delivery.calls[1], HasSubstr("preview Brimble "));
}

TEST(RecordingState, StartAndEncodingFailuresAreToldAndEndIdle) {
  Session start;
  testing::LogCapture log;
  start.settings.countdownDelay = 0;
  start.recorder.startFailure = "Couldn't find a display to record.";
  start.state.startSelection();
  start.state.regionSelected({0, 0, 10, 10});
  start.state.startFromReady();
  EXPECT_EQ(start.state.phase(), RecordingPhase::idle);
  EXPECT_THAT(start.view.messages,
              ElementsAre("error: Failed to start recording: Couldn't find a display to record."));
  EXPECT_THAT(log.lines(),
              Contains("Brimble: Failed to start recording: Couldn't find a display to record."));
  EXPECT_EQ(start.view.calls.back(), "dismiss panel");

  Session empty;
  empty.recorder.frames = 0;
  empty.recordRegion();
  empty.state.stopAndSaveToFile();
  EXPECT_EQ(empty.state.phase(), RecordingPhase::idle);
  EXPECT_THAT(empty.view.messages,
              ElementsAre("error: Failed to encode GIF. The recording may have been too short or "
                          "contained no frames."));
  EXPECT_THAT(log.lines(), Contains(HasSubstr("Brimble: encoding error (stopAndSaveToFile): ")));

  Session throwing;
  throwing.encoder = [](int, const FrameSupplier&, const fs::path&, const SequenceOptions&,
                        std::uint64_t,
                        const SizeBudgetEncoder::PassStarted&) -> SizeBudgetEncoder::Result {
    throw std::runtime_error("disk gone");
  };
  throwing.settings.outputFormat = OutputFormat::mp4;
  throwing.recordRegion();
  throwing.state.stopAndShare();
  throwing.scheduler.runBackground();
  EXPECT_EQ(throwing.state.phase(), RecordingPhase::idle);
  EXPECT_THAT(throwing.view.messages,
              ElementsAre("error: Failed to encode the video. The video writer stopped before the "
                          "file was finished, so nothing was saved."));
  EXPECT_THAT(log.lines(), Contains("Brimble: encoding error (stopAndShare): disk gone"));
}

TEST(RecordingState, AClipOverItsBudgetIsKeptAndTheLastPassLogged) {
  Session session;
  testing::LogCapture log;
  session.settings.qualityPreset = QualityPreset::custom;
  session.settings.maxFileSizeKB = 500;
  std::vector<std::string> progress;
  session.state.onEncodingProgress = [&](double fraction, int pass) {
    progress.push_back(fmt::format("{:.0f}% of pass {}", fraction * 100, pass));
  };
  session.encoder = [&](int count, const FrameSupplier& frameAt, const fs::path& output,
                        const SequenceOptions& options, std::uint64_t budget,
                        const SizeBudgetEncoder::PassStarted& passStarted) {
    EXPECT_EQ(budget, 500u * 1024);
    passStarted(1);
    passStarted(2);
    auto result = SizeBudgetEncoder::encode(count, frameAt, output, options, 0);
    result.passes = 2;
    result.fits = false;
    result.fileSize = 700 * 1024 + 5;
    return result;
  };
  session.recordRegion();
  session.state.stopRecording();
  session.scheduler.runBackground();
  EXPECT_THAT(log.lines(),
              Contains("Brimble: File size 700KB exceeds budget 500KB after 2 passes"));
  // Each pass starts at 0 %; the second pass's encode runs to its end.
  ASSERT_GE(progress.size(), 3u);
  EXPECT_EQ(progress[0], "0% of pass 1");
  EXPECT_EQ(progress[1], "0% of pass 2");
  EXPECT_EQ(progress.back(), "100% of pass 2");
  ASSERT_TRUE(session.delivery.delivered);
  EXPECT_TRUE(fs::exists(*session.delivery.delivered));
}

TEST(RecordingState, MarksAreStampedInRecordingTimeAndTheLayerGoesWithTheRecording) {
  Session session;
  session.recordRegion();
  EXPECT_TRUE(session.state.handleKey(Qt::Key_A, false));
  EXPECT_TRUE(session.state.isAnnotating());
  session.clock.advance(4s);
  session.state.addAnnotation({Annotation::Kind::arrow, {{1, 2}, {30, 40}}, 0});
  session.state.togglePause();
  session.clock.advance(10s);
  session.state.togglePause();
  session.clock.advance(1500ms);
  session.state.addAnnotation({Annotation::Kind::stroke, {{5, 5}, {6, 6}, {7, 9}}, 0});
  const auto& marks = session.state.annotationStore().annotations();
  ASSERT_EQ(marks.size(), 2u);
  EXPECT_DOUBLE_EQ(marks[0].time, 4.0);
  EXPECT_DOUBLE_EQ(marks[1].time, 5.5);  // the ten paused seconds do not count
  EXPECT_EQ(marks[1].points.size(), 3u);
  EXPECT_TRUE(session.state.handleKey(Qt::Key_A, false));
  EXPECT_FALSE(session.state.isAnnotating());
  session.state.stopRecording();
  session.scheduler.runBackground();
  EXPECT_THAT(session.view.calls, Contains("annotations drawing"));
  EXPECT_THAT(session.view.calls, Contains("annotations shown"));
  EXPECT_THAT(session.view.calls, Contains("annotations off"));
  // Not while idle: there is nothing to draw on.
  session.state.toggleAnnotationMode();
  EXPECT_FALSE(session.state.isAnnotating());
}

TEST(RecordingState, MarksGoIntoFramesThatCannotShowThemFromTheFrameEachWasMadeAt) {
  const auto redAt = [](const Image& frame, int x, int y) {
    const auto pixel = frame.row(y).subspan(static_cast<std::size_t>(x) * 4, 4);
    return pixel[2] > 180 && pixel[1] < 110 && pixel[0] < 110;
  };
  const Annotation stroke{Annotation::Kind::stroke, {{200, 116}, {232, 116}}, 0};
  Session window;
  window.settings.countdownDelay = 0;
  // The fake's frames are 16x16: they show the window at half size.
  window.recorder.markedArea = ScreenRect{200, 100, 32, 32};
  window.state.handleWindowTrigger();
  window.scheduler.runPosted();
  window.state.startWindow(7);
  window.clock.advance(1200ms);  // frames come every 0.5 s: between the third and the fourth
  window.state.addAnnotation(stroke);
  window.state.stopRecording();
  window.scheduler.runBackground();
  ASSERT_TRUE(window.delivery.delivered);
  const auto gif = testing::decodeGIFFile(*window.delivery.delivered);
  ASSERT_TRUE(gif);
  ASSERT_EQ(gif->frames.size(), 6u);
  for (std::size_t i = 0; i < gif->frames.size(); ++i) {
    EXPECT_EQ(redAt(gif->frames[i], 8, 8), i >= 3) << "frame " << i;
    EXPECT_FALSE(redAt(gif->frames[i], 8, 3)) << "frame " << i;
  }

  // A region's frames are the screen, where the marks already are, unless the recorder says they
  // are not (Wayland).
  for (const std::optional<ScreenRect> marked :
       {std::optional<ScreenRect>{}, std::optional<ScreenRect>{{200, 100, 32, 32}}}) {
    Session region;
    region.recorder.markedArea = marked;
    region.recordRegion({200, 100, 32, 32});
    region.clock.advance(1200ms);
    region.state.addAnnotation(stroke);
    region.state.stopRecording();
    region.scheduler.runBackground();
    ASSERT_TRUE(region.delivery.delivered);
    const auto clip = testing::decodeGIFFile(*region.delivery.delivered);
    ASSERT_TRUE(clip);
    EXPECT_EQ(redAt(clip->frames.back(), 8, 8), marked.has_value());
  }
}

TEST(RecordingState, AnAppendSessionGetsTheSegmentInsteadOfADeliveryOrHearsItWasCancelled) {
  Session session;
  session.settings.outputFormat = OutputFormat::webp;  // the clip's format wins for a segment
  std::vector<std::string> heard;
  session.state.beginAppendCapture(
      {OutputFormat::gif, [&](const fs::path& segment) { heard.push_back(segment.string()); },
       [&] { heard.push_back("cancelled"); }});
  EXPECT_EQ(session.state.phase(), RecordingPhase::selecting);
  session.state.regionSelected({0, 0, 64, 64});
  session.state.startFromReady();
  for (int i = 0; i < 3; ++i) {
    session.scheduler.fireTimers();
  }
  session.state.stopRecording();
  session.scheduler.runBackground();
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(fs::path(heard[0]).extension(), ".gif");
  EXPECT_EQ(testing::decodeGIFFile(heard[0])->frames.size(), 6u);
  EXPECT_TRUE(session.delivery.calls.empty());
  EXPECT_THAT(session.view.messages, ElementsAre("info: 6 frames recorded to add to the clip."));
  EXPECT_TRUE(session.history.entries().empty());  // the session's owner decides where it goes

  // The next recording is an ordinary one again.
  session.recordRegion();
  session.state.stopRecording();
  session.scheduler.runBackground();
  EXPECT_EQ(session.delivery.calls.size(), 1u);
  EXPECT_EQ(heard.size(), 1u);

  for (int way = 0; way < 3; ++way) {
    Session cancelled;
    bool wasCancelled = false;
    cancelled.state.beginAppendCapture(
        {OutputFormat::gif, [](const fs::path&) {}, [&] { wasCancelled = true; }});
    if (way == 0) {
      cancelled.state.handleKey(Qt::Key_Escape, false);  // nothing selected yet: no key monitor
      cancelled.state.cancelSelection();
    } else if (way == 1) {
      cancelled.recorder.startFailure = "gone";
      cancelled.settings.countdownDelay = 0;
      cancelled.state.regionSelected({0, 0, 64, 64});
      cancelled.state.startFromReady();
    } else {
      cancelled.state.regionSelected({0, 0, 64, 64});
      cancelled.state.startFromReady();
      cancelled.scheduler.fireTimers();
      cancelled.scheduler.fireTimers();
      cancelled.scheduler.fireTimers();
      cancelled.state.stopRecording();
      cancelled.state.handleHotkeyTrigger();  // cancels the encode
    }
    EXPECT_TRUE(wasCancelled) << way;
    EXPECT_EQ(cancelled.state.phase(), RecordingPhase::idle);
  }
}

}  // namespace
}  // namespace brimble
