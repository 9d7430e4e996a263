#pragma once

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include "BrimbleCore/Diagnostics/UsageStatistics.h"

namespace brimble {

/// Settings → Statistics: the usage counts kept on this computer, the switch that stops them
/// and "Reset". Both act at once, like the command line's `brimble stats --off` and
/// `--reset`. Main thread only.
class StatisticsPage final : public QWidget {
  Q_OBJECT

 public:
  explicit StatisticsPage(UsageStatistics statistics = UsageStatistics::forUser(),
                          QWidget* parent = nullptr);

  /// Shows what the file holds now.
  void refresh();

  QLabel* countsLabel() const noexcept { return counts_; }

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  UsageStatistics statistics_;
  QCheckBox* enabled_;
  QLabel* counts_;
  QPushButton* reset_;
};

}  // namespace brimble
