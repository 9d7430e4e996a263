#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QWidget>

#include "BrimbleCore/Diagnostics/ProblemReport.h"

namespace brimble {

/// Help → Report a Problem: what a problem report would hold, file by file, for the user to read
/// before anything is saved, then one archive saved where the user chooses and the address to
/// send it to. Nothing is sent from here. Main thread only.
class ReportProblemWindow final : public QWidget {
  Q_OBJECT

 public:
  static constexpr const char* kTitle = "Report a Problem";

  /// Makes the report; called once, off the main thread (probing the machine takes seconds).
  using Gather = std::function<ProblemReport()>;

  /// `gather` defaults to this machine's checks, logs and crash reports.
  explicit ReportProblemWindow(Gather gather = defaultGather());

  static Gather defaultGather();

  /// The report once gathered; no value before.
  const std::optional<ProblemReport>& report() const noexcept { return report_; }

  /// Saves the report as `output` and says where to send it; a failure is shown in one line.
  /// Returns whether it was saved.
  bool saveTo(const std::filesystem::path& output);

  QListWidget& fileList() const noexcept { return *files_; }
  const QPlainTextEdit& contents() const noexcept { return *contents_; }
  const QLabel& status() const noexcept { return *status_; }

 signals:
  void gathered();

 private:
  void showReport(ProblemReport report);
  void chooseAndSave();

  QLabel* status_;
  QListWidget* files_;
  QPlainTextEdit* contents_;
  QPushButton* save_;
  std::optional<ProblemReport> report_;
};

}  // namespace brimble
