# Sourced by the CI recipe's tests: the brimble under test from $BRIMBLE, a throwaway home and
# state in $tmp (removed on exit), and no display of the user's.
: "${BRIMBLE:?the path of brimble}"
export BRIMBLE
tmp=$(mktemp -d) || exit 1
trap 'rm -rf -- "$tmp"' EXIT
export HOME=$tmp/home XDG_STATE_HOME=$tmp/state XDG_CONFIG_HOME=$tmp/config
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$HOME"
