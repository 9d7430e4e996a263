#!/usr/bin/env bash
# Installs the Debian packages Brimble needs to build, test and run, and nothing else: with `demo`,
# only what the command line needs to build and to run a script in its own display; with
# `scripts`, also the programs scripts may start (a browser, OCR, the accessibility bus, fonts).
# Idempotent: when everything is present it changes nothing and never touches the network.
set -euo pipefail

# What `make demo` needs: to build the `brimble` command and run a script in Brimble's own display.
command_line=(
  # toolchain
  g++ make cmake ninja-build pkg-config
  # libraries
  libgif-dev libturbojpeg0-dev libpng-dev zlib1g-dev libwebp-dev nlohmann-json3-dev libcli11-dev libfmt-dev
  # update checks: the release feed over HTTP(S)
  libcurl4-openssl-dev
  # effects: drawing and text
  libcairo2-dev libpango1.0-dev libfontconfig-dev
  # X11: capture, input and windows, and the embedded display
  libx11-dev libxext-dev libxtst-dev libxfixes-dev libxcomposite-dev libxrandr-dev libxi-dev
  libxres-dev xvfb openbox dbus-daemon xterm x11-utils fonts-dejavu-core
  # the browser driver's transport (Boost.Beast), element targets over AT-SPI, video and sound
  libboost-dev libatspi2.0-dev libavcodec-dev libavformat-dev libavutil-dev libswscale-dev
  libswresample-dev libpulse-dev
  # Wayland desktops: the portals over GDBus, frames over PipeWire
  libpipewire-0.3-dev libglib2.0-dev
)

# What scripts may start besides a terminal: the example scripts, and what users' scripts use.
script_programs=(
  # OCR that finds a command's output on recorded frames
  tesseract-ocr tesseract-ocr-eng
  # title cards in any script, and emoji: fallback Chinese and Japanese, Korean, colour emoji
  fonts-droid-fallback fonts-nanum fonts-noto-color-emoji
  # pages in the browser: Chromium over the DevTools protocol, and fonts for pages
  chromium fonts-liberation
  # the example scripts: a git repository in a terminal, a GTK form
  git zenity
  # element targets in native applications: the AT-SPI bus
  at-spi2-core
)

# What the rest needs: the desktop app, the tests and benchmarks, packaging and fuzzing.
everything_else=(
  # a compiler cache for rebuilds, and clang for the fuzzers
  ccache clang-14 libclang-rt-14-dev
  # GTK widgets to test element targets against, with an independent reader of the bus
  # (python3-gi's AT-SPI bindings)
  gtk-3-examples gir1.2-atspi-2.0
  # the desktop's sound server, and a private one for tests
  pulseaudio pulseaudio-utils
  # a headless GNOME session (mutter, PipeWire, the GNOME portals) and D-Bus bindings for its
  # tests; GNOME Shell for the tests that share one window: the portal's window chooser lists
  # the windows the shell tells it of, and bare mutter tells none
  mutter pipewire pipewire-bin wireplumber xdg-desktop-portal xdg-desktop-portal-gnome
  python3-dbus python3-gi gir1.2-gtk-3.0 gnome-shell
  # the desktop application (and a Qt test application for element targets), as an X11 or a
  # Wayland client; wl-clipboard reads its clipboard back in the Wayland tests
  qt6-base-dev qt6-qpa-plugins qt6-wayland wl-clipboard
  # tests and benchmarks; python3-yaml reads the CI action and workflows; the shells and man tools
  # the completions and manual pages are tried in
  libgtest-dev libgmock-dev libbenchmark-dev ffmpeg imagemagick webp giflib-tools time python3-yaml
  zsh fish man-db groff-base
  # packages: dpkg-shlibdeps finds the libraries the binaries link
  dpkg-dev file
  # MCP tests: the SDK client runs on node; the shim's install-help responder on python3
  nodejs python3
)

case "${1:-all}" in
  demo) packages=("${command_line[@]}") ;;
  scripts) packages=("${command_line[@]}" "${script_programs[@]}") ;;
  all) packages=("${command_line[@]}" "${script_programs[@]}" "${everything_else[@]}") ;;
  *)
    echo "usage: install-deps.sh [demo|scripts|all]" >&2
    exit 2
    ;;
esac

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
# Some nodejs builds bundle npm (and conflict with Debian's npm package): ask only when it is absent.
if [[ "${1:-all}" == all ]] && ! command -v npm >/dev/null; then
  missing+=(npm)
fi

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
sudo=()
if ((EUID != 0)); then
  sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
