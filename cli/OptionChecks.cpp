#include "cli/OptionChecks.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "BrimbleCore/Support/XID.h"
#include "cli/OptionValues.h"
#include "cli/UsageErrors.h"

namespace brimble::cli {
namespace {

template <typename Number>
std::optional<Number> readWhole(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

std::optional<double> readFinite(std::string_view text) {
  const std::optional<double> value = readWhole<double>(text);
  return value && std::isfinite(*value) ? value : std::nullopt;
}

std::string got(const std::string& text) {
  return " (got '" + text + "')";
}

}  // namespace

CLI::Validator wholeNumberIn(long long min, long long max) {
  return {[=](std::string& text) -> std::string {
            const auto value = readWhole<long long>(text);
            if (value && *value >= min && *value <= max) {
              return {};
            }
            return fmt::format("must be a whole number from {} to {}", min, max) + got(text);
          },
          ""};
}

CLI::Validator numberIn(double min, double max) {
  return {[=](std::string& text) -> std::string {
            const auto value = readFinite(text);
            if (value && *value >= min && *value <= max) {
              return {};
            }
            return fmt::format("must be a number from {} to {}", min, max) + got(text);
          },
          ""};
}

CLI::Validator secondsUpTo(double max) {
  return {[=](std::string& text) -> std::string {
            const auto value = readFinite(text);
            if (!value || *value <= 0) {
              return "must be a number of seconds above 0" + got(text);
            }
            if (*value > max) {
              return fmt::format("must be at most {} seconds", max) + got(text);
            }
            return {};
          },
          ""};
}

CLI::Validator windowID() {
  return {[](std::string& text) -> std::string {
            return parseXID(text) ? std::string()
                                  : "must be an X window id such as 0x1a00007" + got(text);
          },
          ""};
}

CLI::Validator oneOf(std::string kind, std::vector<std::string> names) {
  std::string mark = wordsMark(names);
  CLI::Validator validator{
      [kind = std::move(kind), names = std::move(names)](std::string& text) -> std::string {
        if (std::find(names.begin(), names.end(), text) != names.end()) {
          return {};
        }
        const auto nearest = nearestName(text, names);
        return "unknown " + kind + " '" + text + "' (use " + joinedWithOr(names) + ")" +
               (nearest ? "; did you mean '" + *nearest + "'?" : "");
      },
      ""};
  // The completions offer the same names.
  validator.name(std::move(mark));
  return validator;
}

}  // namespace brimble::cli
