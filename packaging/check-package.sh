#!/usr/bin/env bash
# Installs the packages `make package` built as a user would (apt-get install ./brimble_*.deb),
# runs an example from /usr/bin in a fresh HOME, reads the man page and the completions, then
# removes the packages and checks that nothing they installed is left. Changes the system (through
# sudo when not run as root): for a machine where Brimble is not installed from a package already.
set -euo pipefail
build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

fail() {
  echo "check-package: $*" >&2
  exit 1
}

shopt -s nullglob
cli=("$build"/brimble_*.deb)
app=("$build"/brimble-app_*.deb)
((${#cli[@]} == 1)) || fail "expected one $build/brimble_*.deb, found ${#cli[@]}: run make package"
for package in brimble brimble-app; do
  if dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    fail "$package is installed already; remove it first (this check would remove it)"
  fi
done
packages=("./${cli[0]}" "${app[@]/#/./}")
version=$(dpkg-deb -f "${cli[0]}" Version)
sudo=()
if ((EUID != 0)); then
  sudo=(sudo)
fi

work=$(mktemp -d)
cleanup() {
  "${sudo[@]}" apt-get remove -y -qq brimble-app brimble >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

echo "check-package: installing ${packages[*]}"
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${packages[@]}" >/dev/null
installed=$(dpkg -L brimble; ((${#app[@]})) && dpkg -L brimble-app)

# The installed programs, with nothing of the build tree on PATH and a HOME that has never seen
# Brimble.
home=$work/home
mkdir -p "$home"
run() { env -i HOME="$home" PATH=/usr/bin:/bin LANG=C.UTF-8 "$@"; }
[[ $(command -v brimble) == /usr/bin/brimble ]] || fail "brimble is not /usr/bin/brimble"
[[ $(run brimble --version) == "brimble $version" ]] || fail "brimble --version is not $version"
cp examples/hello.brim "$work/"
(cd "$work" && run brimble run --headless hello.brim -o "$work/hello.gif") ||
  fail "brimble run of examples/hello.brim failed"
frames=$(ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames \
  -of csv=p=0 "$work/hello.gif")
((frames > 1)) || fail "hello.gif has $frames frames"
if ((${#app[@]})); then
  [[ $(run brimble-app --version) == "brimble-app $version" ]] || fail "brimble-app --version"
  entry=/usr/share/applications/org.brimble.Brimble.desktop
  grep -qx 'Exec="/usr/bin/brimble-app"' "$entry" || fail "$entry does not start /usr/bin/brimble-app"
fi
man -w brimble >/dev/null 2>&1 || fail "man brimble finds no page"
run man -P cat brimble 2>/dev/null | grep -q "brimble run" || fail "man brimble does not show the run command"
# Bash loads a command's completion from where the package puts it, on the first <TAB>.
offered=$(run bash -c 'source /usr/share/bash-completion/completions/brimble
  COMP_WORDS=(brimble re); COMP_CWORD=1; COMP_LINE="brimble re"; COMP_POINT=${#COMP_LINE}
  _brimble brimble re brimble; printf "%s\n" "${COMPREPLY[@]}"')
grep -qx record <<<"$offered" && grep -qx report <<<"$offered" ||
  fail "bash completes 'brimble re' to: $(echo $offered)"

echo "check-package: removing"
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get remove -y -qq brimble-app brimble >/dev/null
left=()
while read -r path; do
  [[ -z "$path" || "$path" == "/." ]] && continue
  # A folder stays when another package still has files in it.
  if [[ -d "$path" ]]; then
    [[ -n $(dpkg -S "$path" 2>/dev/null) ]] && continue
  fi
  [[ -e "$path" || -L "$path" ]] && left+=("$path")
done <<<"$installed"
((${#left[@]} == 0)) || fail "left behind after removal: ${left[*]}"
echo "check-package: brimble $version installed, ran hello.brim into a GIF of $frames frames," \
  "and was removed without a trace"
