#!/usr/bin/env bash
# Runs the whole test suite several times on each target named (default: device, host,
# host-asan), every second run with the machine loaded by a workload of its own (a busy process
# per core and a writer that syncs to disk), and prints one line per test that failed at least
# once, then a total.
#   scripts/flake-hunt.sh [--runs N] [TARGET...]
set -u
cd "$(dirname "$0")/.."
. scripts/deps.sh
. scripts/suite.sh

runs=5
if [ "${1:-}" = "--runs" ]; then
  runs=${2:?"--runs takes a number"}
  shift 2
fi
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(device host host-asan)

nuv_require_packages "${NUV_DEVICE_PACKAGES[@]}" "${NUV_HOST_PACKAGES[@]}" "${NUV_TEST_PACKAGES[@]}"
nuv_enable_i686_programs

scratch=$(mktemp -d)
load=()
stop_load() {
  [ ${#load[@]} -eq 0 ] || kill "${load[@]}" 2>/dev/null
  wait "${load[@]}" 2>/dev/null
  load=()
}
trap 'stop_load; rm -rf "$scratch"' EXIT

# At normal priority: the suite's processes compete with it, nothing is starved for good.
start_load() {
  local core
  for core in $(seq "$(nproc)"); do
    (while :; do :; done) &
    load+=($!)
  done
  (while :; do dd if=/dev/zero of="$scratch/load" bs=1M count=64 conv=fsync 2>/dev/null; done) &
  load+=($!)
}

declare -A failures=()
left_total=0
for target in "${targets[@]}"; do
  echo "=== $target: build"
  nuv_build_suite "$target" >/dev/null || { echo "$target: build failed" >&2; exit 1; }
  for run in $(seq "$runs"); do
    state=idle
    if [ $((run % 2)) -eq 0 ]; then
      state=loaded
      start_load
    fi
    ctest --preset "$target" >"$scratch/ctest.log" 2>&1
    stop_load
    left=$(nuv_remove_left_pool_files)
    left_total=$((left_total + left))
    mapfile -t failed < <(nuv_failed_tests "$scratch/ctest.log")
    echo "=== $target: run $run of $runs ($state): ${#failed[@]} failed, $left pool files left"
    for test in "${failed[@]}"; do
      failures["$test|$target"]=$((${failures["$test|$target"]:-0} + 1))
    done
    [ ${#failed[@]} -eq 0 ] || cp "$scratch/ctest.log" "build/$target/flake-hunt-run$run.log"
  done
done

echo
for key in "${!failures[@]}"; do
  echo "${key%|*}: ${failures[$key]} of $runs runs failed on ${key#*|}"
done | sort
[ "$left_total" -eq 0 ] || echo "flake-hunt: $left_total pool files were left behind in /var/tmp"
flaky=$(for key in "${!failures[@]}"; do echo "${key%|*}"; done | sort -u | grep -c .)
echo "flake-hunt: $flaky tests failed at least once in $runs runs of ${#targets[@]} targets"
[ "$flaky" -eq 0 ]
