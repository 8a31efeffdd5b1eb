#!/usr/bin/env bash
# Runs the stress scenarios on one target and prints one line per scenario with its figures:
#   scripts/stress.sh [--quick] [device|host|host-asan] [SCENARIO...]
# --quick: the CI figures (a few minutes in all); without it, the release figures (8 producers x
# 100,000 messages, 8 processes x 100,000 allocator operations, 60 s each of semaphore waiters,
# shared lock and kill storm). The target's test build (build/TARGET) is built first.
set -u
cd "$(dirname "$0")/.."
. scripts/deps.sh
. scripts/suite.sh

quick=()
if [ "${1:-}" = "--quick" ]; then
  quick=(--quick)
  shift
fi
preset=${1:-host}
case "$preset" in
  device) run=(qemu-ppc -L /usr/powerpc-linux-gnu) ;;
  host|host-asan) run=() ;;
  *) echo "usage: scripts/stress.sh [--quick] [device|host|host-asan] [SCENARIO...]" >&2; exit 2 ;;
esac
shift $(($# > 0 ? 1 : 0))
nuv_require_packages "${NUV_DEVICE_PACKAGES[@]}" "${NUV_HOST_PACKAGES[@]}" "${NUV_TEST_PACKAGES[@]}"
nuv_enable_i686_programs
nuv_build_suite "$preset" >/dev/null || { echo "stress: the $preset build failed" >&2; exit 1; }
cache="build/$preset/CMakeCache.txt"
if grep -qx 'NUV_HOST_RUN:INTERNAL=emulator' "$cache"; then
  run=("$(sed -n 's/^NUV_QEMU_I386:FILEPATH=//p' "$cache")")
fi

echo "=== stress on $preset${quick:+ (quick)}"
# The scenarios' own messages (a worker's assertion report, say) go to the log file; the lines
# with the figures to standard output.
log="build/$preset/stress.log"
"${run[@]}" "build/$preset/tests/nuv_stress" "${quick[@]}" "$@" 2>"$log"
status=$?
left=$(ls /var/tmp | grep -c '^nuvstress_' || true)
rm -f /var/tmp/nuvstress_*
[ "$left" -eq 0 ] || echo "stress: $left pool files left behind in /var/tmp (removed)"
[ $status -eq 0 ] || echo "stress: FAILED on $preset (messages in $log)"
exit $status
