#pragma once

#include <functional>
#include <thread>
#include <vector>

#include <QGridLayout>
#include <QLabel>
#include <QWidget>

#include "BrimbleCore/Platform/CapabilityCheck.h"

namespace brimble {

/// What this desktop allows Brimble, one row per capability check: a mark, the title, what was
/// found and, where something is missing, what to install or do. The same widget in the
/// first-run window and in Settings → Permissions, so both always say the same. Checks run off
/// the main thread (a stuck service costs seconds), and the rows show that they are being
/// looked at meanwhile. Main thread only.
class CapabilityChecklist final : public QWidget {
  Q_OBJECT

 public:
  /// Looks at the desktop; called on a thread of its own.
  using Probe = std::function<std::vector<CapabilityCheck>()>;

  /// The platform's checks of the session this app runs in.
  static Probe desktopProbe();

  explicit CapabilityChecklist(Probe probe = desktopProbe(), QWidget* parent = nullptr);
  CapabilityChecklist(const CapabilityChecklist&) = delete;
  CapabilityChecklist& operator=(const CapabilityChecklist&) = delete;
  /// Waits for a check in progress: it is bounded by its timeouts.
  ~CapabilityChecklist() override;

  /// Looks again; does nothing while a look is under way. The first look is when the list is
  /// first shown.
  void refresh();
  bool checking() const noexcept { return checking_; }
  /// What the last look found; empty before the first one has answered.
  const std::vector<CapabilityCheck>& checks() const noexcept { return checks_; }

  /// The list in a frameless area that scrolls when it grows (more checks, long fixes) rather
  /// than push its window off the screen, on `parent`'s own background.
  QWidget* scrolling(QWidget* parent);

 signals:
  /// A look has finished and the rows show it.
  void checked();

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  void showChecks(std::vector<CapabilityCheck> checks);
  void clearRows();

  Probe probe_;
  std::vector<CapabilityCheck> checks_;
  bool checking_ = false;
  bool looked_ = false;
  QLabel* summary_;
  QGridLayout* rows_;
  std::thread worker_;
};

}  // namespace brimble
