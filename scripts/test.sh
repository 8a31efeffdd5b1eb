#!/usr/bin/env bash
# Builds and runs the complete test suite on every target: device (PowerPC under qemu-ppc),
# host (i686) and host-asan (i686 with AddressSanitizer and UBSan); checks that the installed
# package builds a program on device and host; runs the quick stress scenarios on each target
# and each fuzz harness for 30 s; ends with one summary line per target and per harness.
set -u
cd "$(dirname "$0")/.."
. scripts/deps.sh
. scripts/suite.sh
nuv_require_packages "${NUV_DEVICE_PACKAGES[@]}" "${NUV_HOST_PACKAGES[@]}" "${NUV_TEST_PACKAGES[@]}"
nuv_enable_i686_programs

start=$(date +%s)
summary=()
failed=0

run_target() {
  local preset=$1
  echo "=== $preset: build"
  if ! nuv_build_suite "$preset"; then
    summary+=("$preset: build failed")
    failed=1
    return
  fi
  echo "=== $preset: test"
  local log="build/$preset/ctest-summary.log" line total failures left
  ctest --preset "$preset" 2>&1 | tee "$log"
  left=$(nuv_remove_left_pool_files)
  echo "=== $preset: $left pool files left behind in /var/tmp (removed)"
  line=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  total=$(sed -E 's/.* out of ([0-9]+).*/\1/' <<<"$line")
  failures=$(sed -E 's/.* ([0-9]+) tests? failed.*/\1/' <<<"$line")
  if [ -z "$line" ]; then
    summary+=("$preset: no test summary")
    failed=1
    return
  fi
  # How the host toolchain found that i686 programs run here: native, binfmt or emulator.
  local how
  how=$(sed -n 's/^NUV_HOST_RUN:INTERNAL=//p' "build/$preset/CMakeCache.txt")
  local stress="stress ok"
  if ! scripts/stress.sh --quick "$preset"; then
    stress="stress FAILED"
    failed=1
  fi
  summary+=("$preset: $((total - failures)) passed, $failures failed, $left pool files left, $stress${how:+ (i686 programs: $how)}")
  [ "$failures" -eq 0 ] || failed=1
}

for preset in device host host-asan; do
  run_target "$preset"
done

for preset in device host; do
  echo "=== $preset: installed package"
  if ! scripts/check-install.sh "$preset"; then
    summary+=("$preset-install: failed")
    failed=1
  fi
done

echo "=== fuzz: 30 s per harness"
if ! NUV_FUZZ_DIR=build/fuzz-quick scripts/fuzz.sh --quick >build/fuzz-quick.log 2>&1; then
  failed=1
fi
while IFS= read -r line; do summary+=("fuzz $line"); done < <(grep -E '^[a-z_]+: ' build/fuzz-quick.log)

echo
echo "Wall time: $(($(date +%s) - start)) s"
printf '%s\n' "${summary[@]}"
exit $failed
