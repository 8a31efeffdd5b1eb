#!/usr/bin/env bash
# Builds the library for the device (32-bit PowerPC) and runs the example program under
# qemu-ppc: two processes share a named pool and take a lock word in turn.
set -eu
cd "$(dirname "$0")/.."
. scripts/deps.sh
nuv_require_packages "${NUV_DEVICE_PACKAGES[@]}"

# A build directory of its own, without tests, beside the test suite's build/device.
build=build/device-example
cmake --preset device -B "$build" -DNUV_BUILD_TESTS=OFF -DNUV_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" --target pool_share
echo "Running examples/pool_share on the device target (qemu-ppc):"
qemu-ppc -L /usr/powerpc-linux-gnu "$build/examples/pool_share"
