#include "Brimble/AboutWindow.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "Brimble/AppIcon.h"
#include "BrimbleCore/Diagnostics/ProblemReport.h"
#include "BrimbleCore/Support/Version.h"

namespace brimble {
namespace {

constexpr const char* kHomePage = "https://github.com/brimble/brimble";

QString link(const QString& address, const QString& text) {
  return QString("<a href=\"%1\">%2</a>").arg(address, text);
}

}  // namespace

QString AboutWindow::versionLine() {
  const QString session = QGuiApplication::platformName() == "wayland" ? "Wayland"
                          : QGuiApplication::platformName() == "xcb"
                              ? "X11"
                              : QGuiApplication::platformName();
  return QString("Brimble %1 (Qt %2, %3)").arg(kVersion, qVersion(), session);
}

AboutWindow::AboutWindow() : QWidget(nullptr, Qt::Dialog) {
  setWindowTitle("About Brimble");
  setObjectName("brimble-about");
  auto* icon = new QLabel(this);
  icon->setPixmap(appIcon(false).pixmap(64, 64));
  auto* name = new QLabel("<b style=\"font-size: 16pt\">Brimble</b>", this);
  auto* version = new QLabel(QString("Version %1").arg(kVersion), this);
  version->setObjectName("brimble-about-version");
  version->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto* summary = new QLabel(
      "Screen activity into small, faithful animated GIFs, WebP, APNG and MP4: recorded by hand, "
      "from demo scripts, or by AI assistants over MCP.",
      this);
  summary->setWordWrap(true);
  auto* links = new QLabel(QString("%1 · %2<br>Copyright © 2026 The Brimble authors · MIT License")
                               .arg(link(QString(kHomePage) + "#readme", "Documentation"),
                                    link(kIssueTracker, "Report a problem")),
                           this);
  links->setOpenExternalLinks(true);

  auto* text = new QVBoxLayout;
  text->addWidget(name);
  text->addWidget(version);
  text->addSpacing(6);
  text->addWidget(summary);
  text->addSpacing(6);
  text->addWidget(links);
  auto* top = new QHBoxLayout;
  top->addWidget(icon, 0, Qt::AlignTop);
  top->addSpacing(12);
  top->addLayout(text, 1);

  copyVersionButton_ = new QPushButton("Copy Version", this);
  auto* close = new QPushButton("Close", this);
  close->setDefault(true);
  connect(copyVersionButton_, &QPushButton::clicked, this,
          [] { QGuiApplication::clipboard()->setText(versionLine()); });
  connect(close, &QPushButton::clicked, this, &QWidget::close);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(copyVersionButton_);
  buttons->addStretch(1);
  buttons->addWidget(close);

  auto* column = new QVBoxLayout(this);
  column->addLayout(top);
  column->addSpacing(8);
  column->addLayout(buttons);
  setFixedWidth(440);
}

}  // namespace brimble
