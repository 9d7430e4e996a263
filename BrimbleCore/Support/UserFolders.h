#pragma once

#include <filesystem>

/// The user's folders as the XDG base directory rules name them, each the first of the variable
/// (when it holds an absolute path, as the rules require) and the usual place under $HOME.
namespace brimble::userFolders {

/// The user's home: $HOME, else the password database's entry.
std::filesystem::path home();

/// $XDG_STATE_HOME/brimble, else ~/.local/state/brimble: what Brimble remembers between runs
/// and the user need not back up (restore tokens, logs, crash reports, usage counts).
std::filesystem::path state();

/// $XDG_DATA_HOME/brimble, else ~/.local/share/brimble: the user's recordings and history.
std::filesystem::path data();

/// $XDG_DATA_HOME, else ~/.local/share: where desktop entries and icons go.
std::filesystem::path dataHome();

/// $XDG_CONFIG_HOME/brimble, else ~/.config/brimble: settings.
std::filesystem::path config();

/// Creates `folder` and its missing parents, each for the user alone (0700), as the base
/// directory rules ask: what Brimble keeps there (restore tokens, logs, crash reports) is the
/// user's business. Existing folders keep their mode. Throws std::system_error naming the folder.
void createPrivate(const std::filesystem::path& folder);

}  // namespace brimble::userFolders
