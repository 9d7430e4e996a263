#!/usr/bin/env bash
# brimble-render-all with the real brimble on a scratch project: a typo stops everything before
# any render, good scripts render beside themselves into GIFs an independent decoder reads, a
# script that fails at run time is named while the others still render.
# Usage: render-all-test.sh RENDER_ALL (with $BRIMBLE naming the brimble binary)
set -uo pipefail

render_all=$(realpath -e "${1:?the path of brimble-render-all}") || exit 1
# shellcheck source=tests/ci/sandbox.sh
source "$(dirname "$0")/sandbox.sh"

failures=0
status=0
case_name=
fail() {
  printf 'FAIL [%s]: %s\n' "$case_name" "$1" >&2
  failures=$((failures + 1))
}
# Runs brimble-render-all from the scratch folder, so every path it prints is relative to it.
run() {
  case_name=$1
  shift
  (cd "$tmp" && "$render_all" "$@") >"$tmp/out" 2>"$tmp/err"
  status=$?
}
expect_status() {
  if [[ "$status" != "$1" ]]; then
    fail "exit $status, expected $1; stdout: $(cat "$tmp/out"); stderr: $(cat "$tmp/err")"
  fi
}
expect_line() {  # FILE LINE: the exact line is in FILE
  grep -qxF -- "$2" "$tmp/$1" || fail "no line '$2' in std$1: $(cat "$tmp/$1")"
}
expect_text() {  # FILE TEXT: the text is somewhere in FILE
  grep -qF -- "$2" "$tmp/$1" || fail "'$2' not in std$1: $(cat "$tmp/$1")"
}
rendered_files() { find "$tmp/proj" -name '*.gif' -printf '%P\n' | sort | tr '\n' ' '; }

# WIDTHxHEIGHT and frame count of a GIF as ffprobe decodes it.
probe() {
  ffprobe -v error -count_frames -select_streams v:0 \
    -show_entries stream=width,height,nb_read_frames -of csv=p=0 "$1" 2>&1
}
# A GIF beside its script, as ffprobe decodes it, and the progress line naming it with its size.
expect_gif() {  # PATH SCRIPT WIDTH [HEIGHT]
  local path=$tmp/$1 width height frames
  [[ -f "$path" ]] || {
    fail "$1 was not written; found: $(rendered_files)"
    return
  }
  IFS=, read -r width height frames <<<"$(probe "$path")"
  [[ "$width" == "$3" && "$height" =~ ^[0-9]+$ ]] || fail "$1 is ${width}x$height, not $3 wide"
  [[ -z "${4:-}" || "$height" == "$4" ]] || fail "$1 is ${width}x$height, not $4 high"
  if ! [[ "$frames" =~ ^[0-9]+$ ]] || ((frames < 2)); then
    fail "$1 has '$frames' frames"
  fi
  grep -qE "^${2//./\\.}: ${1//./\\.}, $(stat -c %s "$path") bytes, [0-9]+\.[0-9] s\$" "$tmp/err" ||
    fail "no progress line with $1's size: $(cat "$tmp/err")"
}

mkdir -p "$tmp/proj/docs/tapes" "$tmp/proj/node_modules/pkg" "$tmp/proj/.cache"
cat >"$tmp/proj/docs/good.brim" <<'EOF'
set output "good.gif"
set max-width 320
open "Terminal"
capture-window app "Terminal" as $t
record $t continue
type "echo good" enter
wait 0.5
stop
EOF
cat >"$tmp/proj/docs/tapes/good.tape" <<'EOF'
Output good-tape.gif
Set Width 400
Set Height 200
Type "echo tape" Enter
Sleep 500ms
EOF
# Never looked at: they would fail validation if they were.
printf 'set outptu "x.gif"\n' >"$tmp/proj/node_modules/pkg/vendored.brim"
printf 'Outptu x.gif\n' >"$tmp/proj/.cache/hidden.tape"

cat >"$tmp/proj/docs/typo.brim" <<'EOF'
set output "typo.gif"
wait 0.2
set outptu "other.gif"
EOF
run "a typo" proj
expect_status 1
expect_text err "proj/docs/typo.brim: Line 3, Col 5: Unknown setting 'outptu'"
expect_line out "1 of 3 scripts invalid, nothing rendered: proj/docs/typo.brim"
[[ -z "$(rendered_files)" ]] || fail "rendered despite the typo: $(rendered_files)"
rm "$tmp/proj/docs/typo.brim"

run "--check" --check proj
expect_status 0
expect_line out "2 valid, nothing rendered"
[[ -z "$(rendered_files)" ]] || fail "--check rendered $(rendered_files)"

run "two good scripts" --jobs 2 --list listed.txt proj
expect_status 0
expect_line out "2 rendered"
expect_gif proj/docs/good.gif proj/docs/good.brim 320
expect_gif proj/docs/tapes/good-tape.gif proj/docs/tapes/good.tape 400 200
listed=$(sort "$tmp/listed.txt" | tr '\n' ' ')
[[ "$listed" == "proj/docs/good.gif proj/docs/tapes/good-tape.gif " ]] ||
  fail "--list wrote: $(cat "$tmp/listed.txt")"

cat >"$tmp/proj/docs/fail.brim" <<'EOF'
set output "fail.gif"
set max-width 320
open "Terminal"
capture-window app "Terminal" as $t
record $t continue
wait 0.3
run "exit 3"
stop
EOF
rm -f "$tmp/proj/docs/good.gif"
# The failing one first: the good one after it still renders.
run "a failing script" proj/docs/fail.brim proj/docs/good.brim
expect_status 1
expect_line out "1 rendered, 1 failed: proj/docs/fail.brim"
expect_text err "proj/docs/fail.brim: failed (exit 1)"
expect_text err "Line 7: Command 'exit 3' failed"
expect_gif proj/docs/good.gif proj/docs/good.brim 320
[[ ! -e "$tmp/proj/docs/fail.gif" ]] || fail "fail.gif written as if it had succeeded"

rm -f "$tmp/proj/docs/good.gif"
run "--fail-fast" --fail-fast proj/docs/fail.brim proj/docs/good.brim
expect_status 1
expect_line out "0 rendered, 1 failed: proj/docs/fail.brim, 1 not run"
[[ ! -e "$tmp/proj/docs/good.gif" ]] || fail "rendered after the first failure"

# Stopped as CI cancels a job (SIGTERM to it alone) and as Ctrl-C does (SIGINT to the terminal's
# whole process group, which a background job here would ignore): brimble is stopped too and
# replaces no earlier output.
for how in TERM INT; do
  sed -e "s/fail.gif/slow-$how.gif/" -e 's/run "exit 3"/wait 30/' "$tmp/proj/docs/fail.brim" \
    >"$tmp/proj/docs/slow-$how.brim"
  printf 'the last good render\n' >"$tmp/proj/docs/slow-$how.gif"
done
(cd "$tmp" && exec "$render_all" proj/docs/slow-TERM.brim) >"$tmp/out-TERM" 2>"$tmp/err-TERM" &
term_pid=$!
(cd "$tmp" && exec /usr/bin/python3 -c 'import os, signal, sys
signal.signal(signal.SIGINT, signal.SIG_DFL)
os.setsid()
os.execv(sys.argv[1], sys.argv[1:])' "$render_all" proj/docs/slow-INT.brim) \
  >"$tmp/out-INT" 2>"$tmp/err-INT" &
int_pid=$!
sleep 3
kill -TERM "$term_pid"
kill -INT -- "-$int_pid"
for how in TERM INT; do
  pid_name=${how,,}_pid
  wait "${!pid_name}"
  status=$?
  case_name="stopped by SIG$how"
  cp "$tmp/out-$how" "$tmp/out"
  cp "$tmp/err-$how" "$tmp/err"
  expect_status 130
  expect_line out "0 rendered, 1 failed: proj/docs/slow-$how.brim (interrupted)"
  printf 'the last good render\n' | cmp -s - "$tmp/proj/docs/slow-$how.gif" ||
    fail "slow-$how.gif was replaced; stderr: $(cat "$tmp/err")"
  ! pgrep -f "$tmp/proj/docs/slow-$how.brim" >/dev/null || fail "brimble still runs after the stop"
done

run "usage: --jobs 0" --jobs 0 proj
expect_status 2
expect_text err "--jobs takes a number from 1 to 99, not '0'"
run "usage: a missing folder" proj/nosuch
expect_status 2
expect_text err "no such folder or script: 'proj/nosuch'"
run "usage: an unknown option" --bogus
expect_status 2
mkdir "$tmp/empty"
run "no scripts" empty
expect_status 1
expect_text err "no .brim or .tape scripts under empty"
BRIMBLE=$tmp/no-brimble run "no brimble" proj
expect_status 2
expect_text err "put brimble on PATH or set BRIMBLE"

if ((failures > 0)); then
  printf '%d checks failed\n' "$failures" >&2
  exit 1
fi
echo "all checks passed"
