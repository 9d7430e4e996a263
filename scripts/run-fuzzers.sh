#!/usr/bin/env bash
# Runs every libFuzzer binary in DIR for SECONDS each, keeping its corpus under DIR/corpus/<name>
# (seeded from fuzz/corpus/<name>), with fuzz/<name>.dict as its dictionary when there is one.
# Fails when a fuzzer finds a crash, a leak or a hang.
set -euo pipefail
dir=${1:?usage: run-fuzzers.sh DIR SECONDS}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
status=0
for fuzzer in "$dir"/*Fuzzer; do
  [[ -x "$fuzzer" ]] || continue
  name=$(basename "$fuzzer")
  corpus="$dir/corpus/$name"
  log="$dir/$name.log"
  mkdir -p "$corpus" "$dir/crashes"
  seeds=()
  [[ -d "$root/fuzz/corpus/$name" ]] && seeds=("$root/fuzz/corpus/$name")
  dictionary=()
  [[ -f "$root/fuzz/$name.dict" ]] && dictionary=(-dict="$root/fuzz/$name.dict")
  echo "== $name for ${seconds}s"
  if "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$dir/crashes/$name-" -print_final_stats=1 "${dictionary[@]}" "$corpus" "${seeds[@]}" >"$log" 2>&1; then
    grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)' "$log" || true
    echo "corpus: $(ls "$corpus" | wc -l) inputs"
  else
    tail -n 40 "$log" >&2
    echo "$name failed; inputs in $dir/crashes, full log $log" >&2
    status=1
  fi
done
exit $status
