#include "Brimble/Settings/SettingsWindow.h"

#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "Brimble/Settings/PermissionsPage.h"
#include "Brimble/Settings/StatisticsPage.h"
#include "Brimble/Settings/UpdatesPage.h"
#include "BrimbleCore/Support/Version.h"
#include "BrimbleCore/Updates/UpdateCheck.h"

namespace brimble {

namespace {

QComboBox* choices(QWidget* parent, const QList<QPair<QString, QVariant>>& items) {
  auto* box = new QComboBox(parent);
  for (const auto& [text, value] : items) {
    box->addItem(text, value);
  }
  return box;
}

void select(QComboBox* box, const QVariant& value) {
  const int index = box->findData(value);
  box->setCurrentIndex(index >= 0 ? index : 0);
}

QSpinBox* number(QWidget* parent, int min, int max, const QString& suffix,
                 const QString& zeroText = {}) {
  auto* box = new QSpinBox(parent);
  box->setRange(min, max);
  box->setSuffix(suffix);
  if (!zeroText.isEmpty()) {
    box->setSpecialValueText(zeroText);
  }
  return box;
}

}  // namespace

SettingsWindow::SettingsWindow(const SettingsStore& store) : store_(store) {
  setObjectName("brimble-settings");
  setWindowTitle("Settings");
  maxDuration_ = number(this, 0, 24 * 3600, " s", "No limit");
  inactivity_ = number(this, 0, 3600, " s", "Never");
  countdown_ = choices(this, {{"None", 0}, {"3 seconds", 3}, {"5 seconds", 5}, {"10 seconds", 10}});
  format_ = choices(this, {{"GIF", "gif"}, {"WebP", "webp"}, {"Animated PNG", "apng"}});
  frameRate_ = choices(this, {{"12 fps", 12}, {"24 fps", 24}, {"30 fps", 30}, {"60 fps", 60}});
  loopCount_ = number(this, 0, 65535, " plays", "Forever");
  showCursor_ = new QCheckBox("Show the pointer", this);
  saveLocation_ = new QLineEdit(this);
  auto* browse = new QPushButton("Choose…", this);
  connect(browse, &QPushButton::clicked, this, [this] {
    const QString folder =
        QFileDialog::getExistingDirectory(this, "Save Location", saveLocation_->text());
    if (!folder.isEmpty()) {
      saveLocation_->setText(folder);
    }
  });
  preset_ = choices(this, {{"Small (fits 2 MB)", "small"},
                           {"Balanced", "balanced"},
                           {"High (every frame whole)", "high"},
                           {"Custom", "custom"}});
  frameDiffing_ = new QCheckBox("Store only what changed between frames", this);
  dedup_ = new QCheckBox("Merge repeated frames", this);
  maxFileSize_ = number(this, 0, 1 << 22, " KB", "No limit");
  webpQuality_ = number(this, 0, 100, "");
  webpLossless_ = new QCheckBox("Lossless WebP", this);
  autoStart_ = new QCheckBox("Start recording as soon as a region is drawn", this);
  preview_ = new QCheckBox("Open the preview after copying", this);
  hotkey_ = new QKeySequenceEdit(this);
  hotkey_->setAccessibleName("Global shortcut");
  desktopShortcut_ =
      new DesktopShortcutPanel(store, QCoreApplication::applicationFilePath().toStdString(), this);

  // The custom choices mean something only with the custom preset.
  const auto presetChanged = [this] {
    const bool custom = preset_->currentData().toString() == "custom";
    for (QWidget* control : std::initializer_list<QWidget*>{frameDiffing_, dedup_, maxFileSize_}) {
      control->setEnabled(custom);
    }
  };
  connect(preset_, &QComboBox::currentIndexChanged, this, presetChanged);

  auto* form = new QFormLayout;
  form->addRow("Maximum recording length:", maxDuration_);
  form->addRow("Stop when nothing changes for:", inactivity_);
  form->addRow("Countdown:", countdown_);
  form->addRow("Global shortcut:", hotkey_);
  form->addRow("Desktop shortcut:", desktopShortcut_);
  form->addRow("Format:", format_);
  form->addRow("Frame rate:", frameRate_);
  form->addRow("Loop:", loopCount_);
  form->addRow("", showCursor_);
  auto* location = new QHBoxLayout;
  location->addWidget(saveLocation_);
  location->addWidget(browse);
  form->addRow("Save to:", location);
  form->addRow("Quality:", preset_);
  form->addRow("", frameDiffing_);
  form->addRow("", dedup_);
  form->addRow("Maximum file size:", maxFileSize_);
  form->addRow("WebP quality:", webpQuality_);
  form->addRow("", webpLossless_);
  form->addRow("", autoStart_);
  form->addRow("", preview_);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
  connect(buttons, &QDialogButtonBox::accepted, this, &SettingsWindow::save);
  connect(buttons, &QDialogButtonBox::rejected, this, &QWidget::close);
  auto* general = new QWidget(this);
  general->setLayout(form);
  permissions_ = new PermissionsPage(CapabilityChecklist::desktopProbe(), this);
  tabs_ = new QTabWidget(this);
  tabs_->addTab(general, "General");
  tabs_->addTab(permissions_, "Permissions");
  tabs_->addTab(new StatisticsPage(UsageStatistics::forUser(), this), "Statistics");
  updates_ = new UpdatesPage(store, updateFeedAddress(std::nullopt, BRIMBLE_UPDATE_FEED_URL),
                             brimble::kVersion, this);
  tabs_->addTab(updates_, "Updates");
  auto* column = new QVBoxLayout(this);
  column->addWidget(tabs_);
  column->addWidget(buttons);
  reload();
  presetChanged();
}

void SettingsWindow::reload() {
  const AppSettings s = store_.load();
  maxDuration_->setValue(static_cast<int>(s.maxRecordingDuration));
  inactivity_->setValue(static_cast<int>(s.inactivityTimeout));
  select(countdown_, s.countdownDelay);
  select(format_, QString::fromUtf8(rawValue(s.outputFormat).data()));
  select(frameRate_, s.frameRate);
  loopCount_->setValue(s.loopCount);
  showCursor_->setChecked(s.showCursor);
  saveLocation_->setText(QString::fromStdString(s.defaultSaveLocation.string()));
  select(preset_, QString::fromUtf8(rawValue(s.qualityPreset).data()));
  frameDiffing_->setChecked(s.frameDiffing);
  dedup_->setChecked(s.frameDeduplication);
  maxFileSize_->setValue(s.maxFileSizeKB);
  webpQuality_->setValue(s.webpQuality);
  webpLossless_->setChecked(s.webpLossless);
  autoStart_->setChecked(s.autoStartAfterRegionSelection);
  preview_->setChecked(s.showPreviewAfterCapture);
  hotkey_->setKeySequence(QKeySequence(QString::fromStdString(s.hotkey)));
  desktopShortcut_->refresh();
  updates_->reload();
}

void SettingsWindow::showPermissions() {
  tabs_->setCurrentWidget(permissions_);
}

void SettingsWindow::save() {
  AppSettings s = store_.load();
  s.maxRecordingDuration = maxDuration_->value();
  s.inactivityTimeout = inactivity_->value();
  s.countdownDelay = countdown_->currentData().toInt();
  s.outputFormat = outputFormatFromRawValue(format_->currentData().toString().toStdString())
                       .value_or(OutputFormat::gif);
  s.frameRate = frameRate_->currentData().toInt();
  s.loopCount = loopCount_->value();
  s.showCursor = showCursor_->isChecked();
  s.defaultSaveLocation = saveLocation_->text().toStdString();
  s.qualityPreset = qualityPresetFromRawValue(preset_->currentData().toString().toStdString())
                        .value_or(QualityPreset::balanced);
  s.frameDiffing = frameDiffing_->isChecked();
  s.frameDeduplication = dedup_->isChecked();
  s.maxFileSizeKB = maxFileSize_->value();
  s.webpQuality = webpQuality_->value();
  s.webpLossless = webpLossless_->isChecked();
  s.autoStartAfterRegionSelection = autoStart_->isChecked();
  s.showPreviewAfterCapture = preview_->isChecked();
  const QString shortcut = hotkey_->keySequence().toString(QKeySequence::PortableText);
  if (!shortcut.isEmpty()) {
    // One chord only: a global grab cannot wait for a second one.
    s.hotkey = shortcut.section(',', 0, 0).trimmed().toStdString();
  }
  try {
    store_.save(s);
  } catch (const std::exception& error) {
    QMessageBox::warning(this, "Brimble", QString::fromStdString(error.what()));
    return;
  }
  if (onSaved) {
    onSaved(s);
  }
  close();
}

}  // namespace brimble
