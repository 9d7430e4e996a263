#pragma once

#include <cstdlib>
#include <memory>

#include <QApplication>

namespace brimble::testing {

/// The application object widgets need, on Qt's offscreen platform (no display involved), for
/// one test: made first and gone last, before the program's own exit.
class OffscreenApplication {
 public:
  OffscreenApplication() {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    application_ = std::make_unique<QApplication>(argc_, argv_);
  }

 private:
  int argc_ = 1;
  char name_[16] = "BrimbleAppTests";
  char* argv_[2] = {name_, nullptr};
  std::unique_ptr<QApplication> application_;
};

}  // namespace brimble::testing
