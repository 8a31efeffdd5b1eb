#!/usr/bin/env bash
# Builds the fuzzers (clang's libFuzzer with AddressSanitizer and UBSan, 32-bit host target) and
# runs each from its seed corpus in tests/fuzz/corpus/NAME, one summary line per fuzzer.
#   scripts/fuzz.sh --quick [NAME...]        30 s per fuzzer (CI)
#   scripts/fuzz.sh --runs N [NAME...]       N executions per fuzzer (release: 10000000)
#   scripts/fuzz.sh --seconds S [NAME...]    S seconds per fuzzer
# NAME picks fuzzers by their corpus folder (config_parser, nuvpool_reader, record_reader); all
# of them by default.
# A crash, a hang (one input over 10 s) or a sanitizer finding fails the run; the input that did
# it is kept in build/fuzz/artifacts/NAME/ (NUV_FUZZ_DIR names another folder than build/fuzz).
# The seeds in the tree are never written.
set -u
cd "$(dirname "$0")/.."
. scripts/deps.sh

usage="usage: scripts/fuzz.sh [--quick | --runs N | --seconds S] [NAME...]"
limit=(-max_total_time=30)
case "${1:---quick}" in
  --quick) shift $(($# > 0)) ;;
  --runs) limit=(-runs="${2:?$usage}"); shift 2 ;;
  --seconds) limit=(-max_total_time="${2:?$usage}"); shift 2 ;;
  *) echo "$usage" >&2; exit 2 ;;
esac
names=("$@")
if [ ${#names[@]} -eq 0 ]; then
  for seeds in tests/fuzz/corpus/*/; do names+=("$(basename "$seeds")"); done
fi
for name in "${names[@]}"; do
  [ -d "tests/fuzz/corpus/$name" ] || { echo "no fuzzer named $name" >&2; exit 2; }
done

nuv_require_packages cmake make clang libclang-rt-14-dev "${NUV_HOST_PACKAGES[@]}"
nuv_enable_i686_programs

# How i686 programs run here decides the runner and whether LeakSanitizer can work (under user
# emulation it cannot stop the world).
runner=()
probe=$(mktemp -d)
printf 'int main(void) { return 0; }\n' >"$probe/probe.c"
i686-linux-gnu-gcc -static "$probe/probe.c" -o "$probe/probe"
if ! "$probe/probe" 2>/dev/null; then
  runner=(qemu-i386)
  export ASAN_OPTIONS=detect_leaks=0
  how="under qemu-i386"
elif grep -qs '^enabled' /proc/sys/fs/binfmt_misc/qemu-i386; then
  export ASAN_OPTIONS=detect_leaks=0
  how="under qemu-i386 (binfmt)"
else
  how="natively"
fi
rm -rf "$probe"

build=${NUV_FUZZ_DIR:-build/fuzz}
cmake -S tests/fuzz -B "$build" -DCMAKE_TOOLCHAIN_FILE="$PWD/tests/fuzz/i686-clang.cmake" \
  -DCMAKE_BUILD_TYPE=None >/dev/null || exit 1
cmake --build "$build" -j2 >/dev/null || { cmake --build "$build"; exit 1; }

failed=0
summary=()
for name in "${names[@]}"; do
  seeds="tests/fuzz/corpus/$name/"
  corpus="$build/corpus/$name"
  artifacts="$build/artifacts/$name/"
  mkdir -p "$corpus" "$artifacts"
  log="$build/$name.log"
  "${runner[@]}" "$build/${name}_fuzz" "${limit[@]}" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$artifacts" "$corpus" "$seeds" >"$log" 2>&1
  status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  seconds=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -n 1)
  if [ $status -eq 0 ]; then
    summary+=("$name: ${runs:-?} executions in ${seconds:-?} s $how, no crash, hang or sanitizer finding")
  else
    summary+=("$name: FAILED (status $status) after ${runs:-?} executions: see $log and $artifacts")
    tail -n 40 "$log"
    failed=1
  fi
done
printf '%s\n' "${summary[@]}"
exit $failed
