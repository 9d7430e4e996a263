#include "BrimbleCore/Effects/WindowBar.h"

#include "BrimbleCore/Support/Text.h"

namespace brimble {

const std::vector<std::string>& windowBarStyleNames() {
  static const std::vector<std::string> names = {"none",           "title", "colorful",
                                                 "colorful-right", "rings", "rings-right"};
  return names;
}

std::optional<WindowBarStyle> windowBarStyleNamed(std::string_view name) {
  std::string key;
  for (const char c : lowercased(name)) {
    if (c != '-' && c != '_' && c != ' ') {
      key += c;
    }
  }
  if (key == "title") {
    return WindowBarStyle::title;
  }
  if (key == "colorful") {
    return WindowBarStyle::colorful;
  }
  if (key == "colorfulright") {
    return WindowBarStyle::colorfulRight;
  }
  if (key == "rings") {
    return WindowBarStyle::rings;
  }
  if (key == "ringsright") {
    return WindowBarStyle::ringsRight;
  }
  return std::nullopt;
}

}  // namespace brimble
