# Run by `cmake --install` and CPack: the desktop entry with its Exec naming the brimble-app just
# installed under the prefix (quoted, as the app's own "Install Command-Line Tool" writes it).
# Set by the install rule before this runs: brimble_desktop_entry, brimble_bindir, brimble_datadir.
file(READ "${brimble_desktop_entry}" entry)
string(REGEX REPLACE "\nExec=[^\n]*" "\nExec=\"${CMAKE_INSTALL_PREFIX}/${brimble_bindir}/brimble-app\""
       entry "${entry}")
set(destination
    "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${brimble_datadir}/applications/org.brimble.Brimble.desktop")
message(STATUS "Installing: ${destination}")
file(WRITE "${destination}" "${entry}")
