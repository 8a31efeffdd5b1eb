#!/usr/bin/env bash
# Builds the library for the device (32-bit PowerPC) and runs the example program under
# qemu-ppc: two processes share a named pool and take a lock word in turn.
set -eu
cd "$(dirname "$0")/.."
. scripts/deps.sh
nuv_require_packages "${NUV_DEVICE_PACKAGES[@]}"

cmake --preset device -DNUV_BUILD_TESTS=OFF -DNUV_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build --preset device --target pool_share
echo "Running examples/pool_share on the device target (qemu-ppc):"
qemu-ppc -L /usr/powerpc-linux-gnu build/device/examples/pool_share
