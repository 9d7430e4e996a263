#include "cli/CommandLineOutline.h"

#include <CLI/CLI.hpp>

namespace brimble::cli {
namespace {

OptionOutline outlineOf(CLI::Option& option) {
  OptionOutline outline;
  if (option.nonpositional()) {
    for (const std::string& name : option.get_snames()) {
      outline.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
      outline.names.push_back("--" + name);
    }
  } else {
    outline.names.push_back(option.get_name(true));
  }
  if (option.get_type_size_max() != 0) {
    // The type alone: what follows a colon describes checks, which the help text words better.
    const std::string type = option.get_type_name();
    outline.valueName = type.substr(0, type.find(':'));
  }
  outline.help = option.get_description();
  outline.defaultValue = option.get_default_str();
  outline.required = option.get_required();
  const int most = option.get_items_expected_max();
  outline.count = most >= CLI::detail::expected_max_vector_size ? -1 : most;
  outline.values = optionValues(option);
  return outline;
}

bool isHidden(const CLI::Option& option) {
  return option.get_group().empty();
}

// Option groups are nameless subcommands to CLI11; their options are the command's own.
void addOptions(CLI::App& app, CommandOutline& outline) {
  for (CLI::Option* option : app.get_options()) {
    if (isHidden(*option)) {
      continue;
    }
    auto& list = option->nonpositional() ? outline.options : outline.positionals;
    list.push_back(outlineOf(*option));
  }
  for (CLI::App* group :
       app.get_subcommands([](CLI::App* sub) { return sub->get_name().empty(); })) {
    addOptions(*group, outline);
  }
}

CommandOutline outlineOf(CLI::App& app, std::vector<std::string> path) {
  CommandOutline outline;
  outline.path = std::move(path);
  outline.description = app.get_description();
  outline.footer = app.get_footer();
  addOptions(app, outline);
  for (CLI::App* sub : app.get_subcommands([](CLI::App* candidate) {
         return !candidate->get_name().empty() && !candidate->get_group().empty();
       })) {
    std::vector<std::string> subPath = outline.path;
    subPath.push_back(sub->get_name());
    outline.subcommands.push_back(outlineOf(*sub, std::move(subPath)));
  }
  return outline;
}

void addAll(const CommandOutline& command, std::vector<const CommandOutline*>& list) {
  list.push_back(&command);
  for (const CommandOutline& sub : command.subcommands) {
    addAll(sub, list);
  }
}

}  // namespace

std::string CommandOutline::fullName() const {
  std::string name;
  for (const std::string& part : path) {
    name += (name.empty() ? "" : " ") + part;
  }
  return name;
}

CommandOutline outlineOf(CLI::App& app) {
  return outlineOf(app, {app.get_name()});
}

std::vector<const CommandOutline*> allCommands(const CommandOutline& root) {
  std::vector<const CommandOutline*> list;
  addAll(root, list);
  return list;
}

}  // namespace brimble::cli
