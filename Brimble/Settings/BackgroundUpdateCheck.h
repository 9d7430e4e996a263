#pragma once

#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <QObject>
#include <QString>

#include "BrimbleCore/Updates/UpdateCheck.h"

namespace brimble {

/// One read of the release feed off the main thread, its outcome posted back to it. Nothing is
/// downloaded or installed. Main thread only; destroying it waits for a running check, which
/// the feed's timeout bounds.
class BackgroundUpdateCheck final : public QObject {
  Q_OBJECT

 public:
  struct Outcome {
    /// No value when the feed could not be read; `error` says why.
    std::optional<UpdateCheckResult> result;
    /// The package that installed this copy, when an update is available.
    std::optional<std::string> package;
    std::string error;
    /// What a person is told: describeUpdate's text, or the error.
    QString text() const;
  };

  /// `feed` and `currentVersion` as checkForUpdate takes them.
  BackgroundUpdateCheck(std::string feed, std::string currentVersion, QObject* parent = nullptr);
  ~BackgroundUpdateCheck() override;

  /// Starts a check unless one is running; `done` runs on the main thread with its outcome.
  /// False when one was already running.
  bool start(std::function<void(const Outcome&)> done);
  bool running() const noexcept { return running_; }

 private:
  const std::string feed_;
  const std::string currentVersion_;
  bool running_ = false;
  std::jthread worker_;
};

}  // namespace brimble
