#!/usr/bin/env bash
# The action's own shell steps, taken from action.yml and run as a runner would run them, on a
# scratch repository with a bare origin: install refuses what it does not know, render sets the
# files output, and commit pushes the rendered GIF, then finds nothing more to commit.
# Usage: action-steps-test.sh SOURCE_DIR (with $BRIMBLE naming the brimble binary)
set -uo pipefail

source_dir=$(realpath -e "${1:?the source folder}") || exit 1
# shellcheck source=tests/ci/sandbox.sh
source "$(dirname "$0")/sandbox.sh"
mkdir -p "$tmp/runner"

failures=0
fail() {
  printf 'FAIL [%s]: %s\n' "$step" "$1" >&2
  failures=$((failures + 1))
}
# Runs the step of action.yml with this name in the workspace, as the runner does (bash -e).
run_step() {
  step=$1
  /usr/bin/python3 -c '
import sys, yaml
steps = yaml.safe_load(open(sys.argv[1]))["runs"]["steps"]
print(next(s["run"] for s in steps if s["name"] == sys.argv[2]))' \
    "$source_dir/action.yml" "$step" >"$tmp/step.sh" || {
    fail "no such step in action.yml"
    return
  }
  (cd "$tmp/work" && bash -e "$tmp/step.sh") >"$tmp/out" 2>"$tmp/err"
  status=$?
}
expect_status() {
  [[ "$status" == "$1" ]] || fail "exit $status, expected $1: $(cat "$tmp/out" "$tmp/err")"
}

export GITHUB_ACTION_PATH=$source_dir GITHUB_WORKSPACE=$tmp/work RUNNER_TEMP=$tmp/runner
export GITHUB_OUTPUT=$tmp/github-output GITHUB_PATH=$tmp/github-path
export GITHUB_REF_NAME=main GITHUB_HEAD_REF=''
git init -q --bare -b main "$tmp/origin.git"
git init -q -b main "$tmp/work"
mkdir "$tmp/work/docs"
cat >"$tmp/work/docs/intro.tape" <<'EOF'
Output intro.gif
Set Width 400
Set Height 200
Type "echo intro" Enter
Sleep 500ms
EOF
git -C "$tmp/work" add docs/intro.tape
git -C "$tmp/work" -c user.name=t -c user.email=t@example.org commit -q -m "A script"
git -C "$tmp/work" remote add origin "$tmp/origin.git"
git -C "$tmp/work" push -q origin main

INSTALL=none run_step "Install Brimble"
expect_status 0
INSTALL=package PACKAGE_URL='' run_step "Install Brimble"
expect_status 1
grep -qF "install is 'package' but package-url is empty" "$tmp/err" || fail "$(cat "$tmp/err")"
INSTALL=pip run_step "Install Brimble"
expect_status 1
grep -qF "install is 'pip'; it takes build, package or none" "$tmp/err" || fail "$(cat "$tmp/err")"

FOLDERS=$'docs\n' JOBS=1 run_step "Render"
expect_status 0
printf 'files<<BRIMBLE_FILES_END\ndocs/intro.gif\nBRIMBLE_FILES_END\n' | cmp -s - "$GITHUB_OUTPUT" ||
  fail "GITHUB_OUTPUT holds: $(cat "$GITHUB_OUTPUT")"

FILES=docs/intro.gif MESSAGE="Render the intro" run_step "Commit the changed files"
expect_status 0
[[ "$(git -C "$tmp/origin.git" log -1 --format=%s main)" == "Render the intro" ]] ||
  fail "origin's main is at: $(git -C "$tmp/origin.git" log --oneline -2 main)"
git -C "$tmp/origin.git" show main:docs/intro.gif | cmp -s - "$tmp/work/docs/intro.gif" ||
  fail "origin's docs/intro.gif is not the rendered one"

FILES=docs/intro.gif MESSAGE="Again" run_step "Commit the changed files"
expect_status 0
grep -qF "nothing to commit" "$tmp/out" || fail "$(cat "$tmp/out" "$tmp/err")"
[[ "$(git -C "$tmp/origin.git" rev-list --count main)" == 2 ]] || fail "a second commit was made"

if ((failures > 0)); then
  printf '%d checks failed\n' "$failures" >&2
  exit 1
fi
echo "all checks passed"
