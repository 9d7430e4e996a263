#!/usr/bin/env bash
# Installs the Debian packages Brimble needs to build, test and run, and nothing else.
# Idempotent: when everything is present it changes nothing and never touches the network.
set -euo pipefail

packages=(
  # toolchain
  g++ make cmake ninja-build ccache pkg-config clang-14 libclang-rt-14-dev
  # libraries
  libgif-dev libturbojpeg0-dev libpng-dev zlib1g-dev libwebp-dev nlohmann-json3-dev libcli11-dev libfmt-dev
  # update checks: the release feed over HTTP(S)
  libcurl4-openssl-dev
  # effects: drawing and text, and OCR that finds a command's output on recorded frames
  libcairo2-dev libpango1.0-dev libfontconfig-dev tesseract-ocr tesseract-ocr-eng
  # title cards in any script, and emoji: fallback Chinese and Japanese, Korean, colour emoji
  fonts-droid-fallback fonts-nanum fonts-noto-color-emoji
  # X11: capture, input and windows, and the embedded display
  libx11-dev libxext-dev libxtst-dev libxfixes-dev libxcomposite-dev libxrandr-dev libxi-dev
  libxres-dev xvfb openbox dbus-daemon xterm x11-utils
  # the browser driver: Chromium over the DevTools protocol, Boost.Beast, fonts for pages
  chromium libboost-dev fonts-dejavu-core fonts-liberation
  # the example scripts: a git repository in a terminal
  git
  # element targets in native applications: AT-SPI, and GTK dialogs and widgets to test against,
  # with an independent reader of the bus (python3-gi's AT-SPI bindings)
  libatspi2.0-dev at-spi2-core zenity gtk-3-examples gir1.2-atspi-2.0
  # video and sound: H.264/AAC in MP4, the desktop's sound server, and a private one for tests
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev libswresample-dev libpulse-dev
  pulseaudio pulseaudio-utils
  # Wayland desktops: the screen-cast and remote-desktop portals over GDBus, frames over PipeWire;
  # a headless GNOME session (mutter, the GNOME portals) and D-Bus bindings for its tests;
  # GNOME Shell for the tests that share one window: the portal's window chooser lists the
  # windows the shell tells it of, and bare mutter tells none
  libpipewire-0.3-dev libglib2.0-dev mutter pipewire pipewire-bin wireplumber xdg-desktop-portal
  xdg-desktop-portal-gnome python3-dbus python3-gi gir1.2-gtk-3.0 gnome-shell
  # the desktop application (and a Qt test application for element targets), as an X11 or a
  # Wayland client; wl-clipboard reads its clipboard back in the Wayland tests
  qt6-base-dev qt6-qpa-plugins qt6-wayland wl-clipboard
  # tests and benchmarks; the shells and man tools the completions and manual pages are tried in
  libgtest-dev libgmock-dev libbenchmark-dev ffmpeg imagemagick webp giflib-tools time
  zsh fish man-db groff-base
  # MCP tests: the SDK client runs on node; the shim's install-help responder on python3
  nodejs python3
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
# Some nodejs builds bundle npm (and conflict with Debian's npm package): ask only when it is absent.
if ! command -v npm >/dev/null; then
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
