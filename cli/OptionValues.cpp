#include "cli/OptionValues.h"

#include <string_view>

namespace brimble::cli {
namespace {

// Marks are validator names, which CLI11 never prints: the help text stays as written.
constexpr std::string_view kWordsPrefix = "values:";
constexpr std::string_view kScriptsMark = "values are scripts";
constexpr std::string_view kFilesMark = "values are files";
constexpr char kWordSeparator = '\n';  // no word an option takes holds a line break

CLI::Validator mark(std::string name) {
  CLI::Validator validator{[](std::string&) { return std::string(); }, ""};
  validator.name(std::move(name));
  return validator;
}

}  // namespace

std::string wordsMark(const std::vector<std::string>& words) {
  std::string name(kWordsPrefix);
  for (std::size_t i = 0; i < words.size(); ++i) {
    name += (i == 0 ? "" : std::string(1, kWordSeparator)) + words[i];
  }
  return name;
}

CLI::Validator valuesFrom(std::vector<std::string> words) {
  return mark(wordsMark(words));
}

CLI::Validator scriptFileValue() {
  return mark(std::string(kScriptsMark));
}

CLI::Validator fileValue() {
  return mark(std::string(kFilesMark));
}

OptionValues optionValues(CLI::Option& option) {
  // CLI11 lists an option's validators only one index at a time, and throws past the last one.
  for (int index = 0;; ++index) {
    const CLI::Validator* validator = nullptr;
    try {
      validator = option.get_validator(index);
    } catch (const CLI::OptionNotFound&) {
      break;
    }
    const std::string_view name = validator->get_name();
    if (name == kScriptsMark) {
      return {OptionValues::Kind::scripts, {}};
    }
    if (name == kFilesMark) {
      return {OptionValues::Kind::files, {}};
    }
    if (name.starts_with(kWordsPrefix)) {
      OptionValues values{OptionValues::Kind::words, {}};
      std::string_view rest = name.substr(kWordsPrefix.size());
      while (!rest.empty()) {
        const std::size_t end = rest.find(kWordSeparator);
        values.words.emplace_back(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
      }
      return values;
    }
  }
  return {};
}

}  // namespace brimble::cli
