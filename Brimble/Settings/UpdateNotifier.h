#pragma once

#include <memory>
#include <string>

#include <QLabel>
#include <QObject>
#include <QWidget>

#include "Brimble/Settings/BackgroundUpdateCheck.h"
#include "Brimble/Settings/UpdateSchedule.h"

namespace brimble {

/// The app's opt-in update check at start: at most once a day, in the background, and a small
/// notice that is never modal when a release newer than this build is out (each release told of
/// once). Main thread only.
class UpdateNotifier final : public QObject {
  Q_OBJECT

 public:
  UpdateNotifier(std::string feed, std::string currentVersion, UpdateSchedule schedule,
                 QObject* parent = nullptr);

  /// Checks when `enabled` (the user's setting) and a check is due; otherwise does nothing.
  /// True when a check started.
  bool checkAtStart(bool enabled);

  /// The notice shown, if any; it closes itself and is not deleted until the next.
  QWidget* notice() const { return notice_.get(); }
  bool checking() const noexcept { return check_.running(); }

 private:
  void tell(const BackgroundUpdateCheck::Outcome& outcome);

  UpdateSchedule schedule_;
  BackgroundUpdateCheck check_;
  std::unique_ptr<QWidget> notice_;
  QLabel* noticeText_ = nullptr;
};

}  // namespace brimble
