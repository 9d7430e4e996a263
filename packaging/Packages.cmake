# `make package`: Debian packages, one per component. `brimble` holds the command line and the
# MCP server; `brimble-app` the desktop app, which drives the same engine and needs the command
# line for "Install Command-Line Tool" and the MCP hosts. Their library dependencies come from
# what the binaries actually link (dpkg-shlibdeps); the programs Brimble starts are named here.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME brimble)
set(CPACK_PACKAGE_VENDOR "The Brimble authors")
set(CPACK_PACKAGE_CONTACT "The Brimble authors <https://github.com/brimble/brimble/issues>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_HOMEPAGE_URL "https://github.com/brimble/brimble")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX ${CMAKE_BINARY_DIR})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_COMPONENTS_ALL cli)
set(CPACK_DEBIAN_CLI_PACKAGE_NAME brimble)
# `brimble run` and --headless run in a display of Brimble's own: an X server, a window manager,
# a session bus, and the terminal most scripts open.
set(CPACK_DEBIAN_CLI_PACKAGE_DEPENDS "xvfb, openbox, dbus-daemon | dbus, xterm, fonts-dejavu-core")
# What some scripts and sessions use: pages (Chromium), finding a command's output on screen
# (Tesseract), native applications' elements (the accessibility bus), the user's Wayland desktop
# (the portals over PipeWire), sound, and emoji.
set(CPACK_DEBIAN_CLI_PACKAGE_RECOMMENDS
    "chromium, tesseract-ocr, tesseract-ocr-eng, at-spi2-core, pipewire, wireplumber, \
xdg-desktop-portal, xdg-desktop-portal-gnome | xdg-desktop-portal-kde, fonts-noto-color-emoji, git")
# Each description's first line is its summary; no package-wide summary, which CPack would put
# first in both.
set(CPACK_DEBIAN_CLI_DESCRIPTION "Screen activity into small, faithful animated GIFs
Brimble turns screen activity into animated GIFs, WebP, APNG and MP4: from .brim demo scripts
that drive real terminals, applications and browsers in a display of its own, from recordings
of the screen (X11, or Wayland through the desktop portal), and for AI assistants over MCP.

This package holds the brimble command and its MCP server.")

if(BRIMBLE_BUILD_APP)
  list(APPEND CPACK_COMPONENTS_ALL app)
  set(CPACK_DEBIAN_APP_PACKAGE_NAME brimble-app)
  set(CPACK_DEBIAN_APP_PACKAGE_SECTION video)
  set(CPACK_DEBIAN_APP_PACKAGE_DEPENDS "brimble (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_APP_PACKAGE_RECOMMENDS "qt6-wayland, xdg-desktop-portal")
  set(CPACK_DEBIAN_APP_DESCRIPTION "Record the screen as an animated GIF, ready to paste
The Brimble desktop app: a shortcut and a tray icon to record a region, a window or the whole
screen, a library of clips, and an editor to trim them, on X11 and Wayland desktops.")
endif()

# Debian wants each package's copyright beside its documentation.
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/brimble RENAME copyright COMPONENT cli)
if(BRIMBLE_BUILD_APP)
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/brimble-app RENAME copyright
          COMPONENT app)
endif()

include(CPack)
