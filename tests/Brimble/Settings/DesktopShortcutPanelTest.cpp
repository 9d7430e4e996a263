#include "Brimble/Settings/DesktopShortcutPanel.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <gtest/gtest.h>

#include "Brimble/Settings/DesktopShortcut.h"
#include "tests/Support/KeyfileGSettings.h"
#include "tests/Support/OffscreenApplication.h"
#include "tests/Support/TempDirectory.h"

namespace brimble {
namespace {

namespace fs = std::filesystem;
using testing::KeyfileGSettings;
using testing::OffscreenApplication;

constexpr const char* kShortcutApp = "/opt/brimble/brimble-app";

void keepShortcutScreenshot(QWidget& widget, const std::string& name) {
  const fs::path folder = fs::path(BRIMBLE_ARTIFACT_DIR) / "desktop-shortcut";
  fs::create_directories(folder);
  widget.grab().save(QString::fromStdString((folder / (name + ".png")).string()));
}

/// Whether a message box is on screen now.
bool shortcutMessageBoxShown() {
  QApplication::processEvents();
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (qobject_cast<QMessageBox*>(widget) != nullptr && widget->isVisible()) {
      return true;
    }
  }
  return false;
}

/// Answers the next message box within 5 seconds as the user would, with the button titled
/// `button`, and keeps what it said. The box's text stays empty when none appeared.
class ShortcutMessageBoxAnswer {
 public:
  /// With a `screenshot` name, the box is kept as a picture of that name.
  explicit ShortcutMessageBoxAnswer(QString button, std::string screenshot = {})
      : button_(std::move(button)) {
    timer_.setInterval(20);
    QObject::connect(&timer_, &QTimer::timeout, [this, screenshot] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      if (box == nullptr) {
        if (++ticks_ > 250) {
          timer_.stop();
        }
        return;
      }
      text_ = box->text();
      if (!screenshot.empty()) {
        keepShortcutScreenshot(*box, screenshot);
      }
      for (QAbstractButton* candidate : box->buttons()) {
        buttons_ << candidate->text();
        if (candidate->text() == button_) {
          candidate->click();
        }
      }
      timer_.stop();
    });
    timer_.start();
  }

  /// Lets the application run until the box was answered or the 5 seconds are up (a box that
  /// waits on its own needs the event loop). Whether one was answered.
  bool wait() {
    while (timer_.isActive()) {
      QApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    QApplication::processEvents();
    return !text_.isEmpty();
  }
  const QString& text() const { return text_; }
  const QStringList& buttons() const { return buttons_; }

 private:
  QString button_;
  QTimer timer_;
  int ticks_ = 0;
  QString text_;
  QStringList buttons_;
};

/// GNOME's settings in a private keyfile, holding a keybinding of the user's own, and the app's
/// settings in a folder of the test's.
class OnGNOME : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!KeyfileGSettings::available()) {
      GTEST_SKIP() << "no gsettings or GNOME's media-keys schema on this machine";
    }
    gnome.emplace();
    gnome->addUsersOwn();
    ::setenv("XDG_CURRENT_DESKTOP", "GNOME", 1);
  }

  const OffscreenApplication qt;
  std::optional<KeyfileGSettings> gnome;
  testing::TempDirectory folder;
  const SettingsStore store{folder / "brimble.conf"};
};

TEST_F(OnGNOME, AnOfferAsksOnceAddsOnlyWhenTheUserSaysAddAndKeepsOursUpToDate) {
  {
    ShortcutMessageBoxAnswer answer("Not now", "offer");
    // The app starts on while the question waits.
    EXPECT_FALSE(offerDesktopShortcut(store, kShortcutApp, nullptr));
    ASSERT_TRUE(answer.wait());
    EXPECT_EQ(answer.text(),
              "Add Ctrl+Shift+G as a keyboard shortcut of this desktop? It runs brimble-app "
              "--toggle.");
    EXPECT_EQ(answer.buttons(), QStringList({"Add", "Not now"}));
  }
  EXPECT_EQ(gnome->list(), std::string("['") + KeyfileGSettings::kUsersKeybinding + "']");
  EXPECT_TRUE(store.load().desktopShortcutOffered);
  // Asked once: the next start says nothing.
  EXPECT_FALSE(offerDesktopShortcut(store, kShortcutApp, nullptr));
  EXPECT_FALSE(shortcutMessageBoxShown());
  EXPECT_EQ(gnome->ours("command"), "''");

  // Another user of this machine's settings, who says Add.
  testing::TempDirectory otherFolder;
  const SettingsStore other(otherFolder / "brimble.conf");
  {
    ShortcutMessageBoxAnswer answer("Add");
    EXPECT_FALSE(offerDesktopShortcut(other, kShortcutApp, nullptr));
    ASSERT_TRUE(answer.wait());
  }
  EXPECT_EQ(gnome->list(), std::string("['") + KeyfileGSettings::kUsersKeybinding + "', '" +
                               DesktopShortcut::kKeybindingPath + "']");
  EXPECT_EQ(gnome->ours("binding"), "'<Control><Shift>g'");
  EXPECT_EQ(gnome->ours("command"), "'/opt/brimble/brimble-app --toggle'");
  // From now on it stands in for the global shortcut.
  EXPECT_TRUE(offerDesktopShortcut(other, kShortcutApp, nullptr));
  EXPECT_FALSE(shortcutMessageBoxShown());

  // New keys in Settings, and the app moved: ours follows, without asking again.
  AppSettings changed = other.load();
  changed.hotkey = "Ctrl+Alt+R";
  other.save(changed);
  EXPECT_TRUE(offerDesktopShortcut(other, "/usr/bin/brimble-app", nullptr));
  EXPECT_FALSE(shortcutMessageBoxShown());
  EXPECT_EQ(gnome->ours("binding"), "'<Control><Alt>r'");
  EXPECT_EQ(gnome->ours("command"), "'/usr/bin/brimble-app --toggle'");
  EXPECT_EQ(gnome->usersOwn("binding"), "'<Super>t'");
}

TEST(DesktopShortcutOffer, WhereItCannotAddItItSaysHowOnce) {
  const OffscreenApplication qt;
  ::setenv("XDG_CURRENT_DESKTOP", "KDE", 1);
  testing::TempDirectory folder;
  const SettingsStore store(folder / "brimble.conf");
  {
    ShortcutMessageBoxAnswer answer("OK");
    EXPECT_FALSE(offerDesktopShortcut(store, kShortcutApp, nullptr));
    ASSERT_TRUE(answer.wait());
    EXPECT_EQ(answer.text().toStdString(),
              "To record with Ctrl+Shift+G: " +
                  DesktopShortcut("KDE").instructions("Ctrl+Shift+G", kShortcutApp));
  }
  EXPECT_FALSE(offerDesktopShortcut(store, kShortcutApp, nullptr));
  EXPECT_FALSE(shortcutMessageBoxShown());
}

TEST_F(OnGNOME, ThePanelAddsAndRemovesOursAndElsewhereShowsHowByHand) {
  DesktopShortcutPanel panel(store, kShortcutApp);
  auto* button = panel.findChild<QPushButton*>("desktop-shortcut-button");
  ASSERT_NE(button, nullptr);
  EXPECT_EQ(button->text(), "Add to Desktop");
  keepShortcutScreenshot(panel, "gnome-absent");

  button->click();
  EXPECT_EQ(gnome->ours("binding"), "'<Control><Shift>g'");
  EXPECT_EQ(button->text(), "Remove from Desktop");
  EXPECT_EQ(button->toolTip(),
            "Ctrl+Shift+G runs /opt/brimble/brimble-app --toggle, a keyboard shortcut of this "
            "desktop.");
  keepShortcutScreenshot(panel, "gnome-added");

  // Changed behind its back (the keys in Settings): it offers to bring it up to date.
  AppSettings changed = store.load();
  changed.hotkey = "Ctrl+Alt+R";
  store.save(changed);
  panel.refresh();
  EXPECT_EQ(button->text(), "Update on Desktop");
  button->click();
  EXPECT_EQ(gnome->ours("binding"), "'<Control><Alt>r'");
  EXPECT_EQ(button->text(), "Remove from Desktop");

  button->click();
  EXPECT_EQ(gnome->list(), std::string("['") + KeyfileGSettings::kUsersKeybinding + "']");
  EXPECT_EQ(button->text(), "Add to Desktop");

  ::setenv("XDG_CURRENT_DESKTOP", "KDE", 1);
  panel.refresh();
  EXPECT_EQ(button->text(), "How to Add It to the Desktop…");
  const ShortcutMessageBoxAnswer how("OK", "kde-how");
  button->click();
  EXPECT_EQ(how.text().toStdString(),
            DesktopShortcut("KDE").instructions("Ctrl+Alt+R", kShortcutApp));
}

}  // namespace
}  // namespace brimble
