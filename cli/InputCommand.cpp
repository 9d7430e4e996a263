#include "cli/InputCommand.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "BrimbleCore/Automation/InputError.h"
#include "BrimbleCore/Automation/InputSimulator.h"
#include "cli/CommandDesktop.h"
#include "cli/OptionValues.h"

namespace brimble::cli {
namespace {

struct InputOptions {
  std::string text;
  bool enter = false;
  double delay = 0.05;
  std::string keyChord;
  std::vector<int> point;
  bool right = false;
  int x = 0;
  int y = 0;
  double duration = 0;
  std::string direction;
  int ticks = 3;
};

std::optional<ScrollDirection> directionNamed(const std::string& name) {
  if (name == "up") {
    return ScrollDirection::up;
  }
  if (name == "down") {
    return ScrollDirection::down;
  }
  if (name == "left") {
    return ScrollDirection::left;
  }
  if (name == "right") {
    return ScrollDirection::right;
  }
  return std::nullopt;
}

}  // namespace

Command addInputCommand(CLI::App& app, Interrupts& interrupts) {
  auto options = std::make_shared<InputOptions>();
  CLI::App* command = app.add_subcommand(
      "input",
      "Type, press keys, click, move the pointer or scroll on the desktop, as a script would "
      "(without one, start a display that stays with `brimble display start`)");
  command->require_subcommand(1);

  CLI::App* type = command->add_subcommand(
      "type", "Type text into the focused window, any Unicode included, with human pacing");
  type->add_option("text", options->text, "The text (UTF-8)")->required();
  type->add_flag("--enter", options->enter, "Press Enter after the text");
  type->add_option("--delay", options->delay, "Seconds per character, ±30 %")
      ->check(CLI::Range(0.0, 10.0))
      ->capture_default_str();
  CLI::App* key = command->add_subcommand(
      "key", "Press a key with modifiers: cmd+c, shift+tab, ctrl+alt+delete, f5 (cmd is Ctrl)");
  key->add_option("chord", options->keyChord, "Modifiers and a key joined by +")->required();
  CLI::App* click = command->add_subcommand("click", "Click at a point, or where the pointer is");
  click->add_option("point", options->point, "X Y in screen pixels")->expected(2);
  click->add_flag("--right", options->right, "Click the right button");
  CLI::App* move = command->add_subcommand("move", "Move the pointer, eased over --duration");
  move->add_option("x", options->x, "X in screen pixels")->required();
  move->add_option("y", options->y, "Y in screen pixels")->required();
  move->add_option("--duration", options->duration, "Seconds; 0 jumps there")
      ->check(CLI::Range(0.0, 60.0))
      ->capture_default_str();
  CLI::App* scroll = command->add_subcommand("scroll", "Turn the wheel where the pointer is");
  scroll->add_option("direction", options->direction, "up, down, left or right")
      ->check(valuesFrom({"up", "down", "left", "right"}))
      ->required();
  scroll->add_option("ticks", options->ticks, "Wheel clicks")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  return {command, [=, &interrupts] {
            const std::string name =
                "brimble input " + command->get_subcommands().front()->get_name();
            const auto direction = directionNamed(options->direction);
            if (scroll->parsed() && !direction) {
              fmt::print(stderr, "{}: Invalid direction '{}'. Must be: up, down, left, right\n",
                         name, options->direction);
              return kExitUsage;
            }
            KeyChord chord;
            try {
              if (key->parsed()) {
                chord = InputSimulator::parseKeyChord(options->keyChord);
                InputSimulator::requireKnownWords(chord, options->keyChord);
              }
            } catch (const InputError& error) {
              fmt::print(stderr, "{}: {}\n", name, error.what());
              return kExitUsage;
            }
            const std::stop_token stop = interrupts.watch();
            const auto desktop = lastingDesktop();
            InputSimulator& input = desktop->input();
            if (!input.available()) {
              fmt::print(stderr, "{}: cannot send input to the display {}: {}\n", name,
                         desktop->session().name, input.unavailableReason());
              return kExitFailure;
            }
            if (type->parsed()) {
              // A key the user still holds from starting this command would turn the text
              // into shortcuts.
              input.waitForKeyboardIdle();
              input.typeText(options->text, options->delay, options->enter,
                             [&] { return stop.stop_requested(); });
            } else if (key->parsed()) {
              input.waitForKeyboardIdle();
              input.pressKey(chord.key, chord.modifiers);
            } else if (click->parsed()) {
              const ScreenPoint at = options->point.size() == 2
                                         ? ScreenPoint{options->point[0], options->point[1]}
                                         : input.cursorPosition();
              input.click(at.x, at.y, options->right ? MouseButton::right : MouseButton::left);
            } else if (move->parsed()) {
              input.smoothMove(options->x, options->y, options->duration);
            } else {
              input.scroll(*direction, options->ticks);
            }
            return stop.stop_requested() ? Interrupts::kExitInterrupted : kExitSuccess;
          }};
}

}  // namespace brimble::cli
