#!/usr/bin/env bash
# Installs the npm packages the tests drive Brimble with (the official MCP TypeScript SDK, pinned
# with its dependencies by tests/MCP/npm/package-lock.json) into DIR/node_modules.
# Idempotent: when DIR already holds exactly the locked set it changes nothing and never touches
# the network. Fails loudly when node or npm is missing, since the tests need them.
set -euo pipefail
dir=${1:?usage: install-test-npm.sh DIR}
root=$(cd "$(dirname "$0")/.." && pwd)
source=$root/tests/MCP/npm
stamp=$dir/installed.stamp

if [[ -f "$stamp" ]] && cmp -s "$source/package-lock.json" "$stamp" &&
    [[ -f "$dir/node_modules/@modelcontextprotocol/sdk/package.json" ]]; then
  touch "$stamp"
  exit 0
fi
for tool in node npm; do
  if ! command -v "$tool" >/dev/null; then
    echo "install-test-npm: $tool is missing; run scripts/install-deps.sh" >&2
    exit 1
  fi
done

mkdir -p "$dir"
cp "$source/package.json" "$source/package-lock.json" "$dir/"
echo "install-test-npm: installing the MCP SDK into $dir" >&2
(cd "$dir" && npm ci --no-audit --no-fund --loglevel=error)
cp "$source/package-lock.json" "$stamp"
