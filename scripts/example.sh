#!/usr/bin/env bash
# Builds the library for the device (32-bit PowerPC) and runs the example programs under
# qemu-ppc: two processes that share a named pool and take a lock word in turn, then a small
# device application with a worker thread, a server thread that answers framed records over a
# local socket, a background thread and one thread's fatal report, then a task manager running
# three tasks and a traced loop with its report. nuvpool shows what the device application left
# in its pool.
set -eu
cd "$(dirname "$0")/.."
. scripts/deps.sh
nuv_require_packages "${NUV_DEVICE_PACKAGES[@]}"

# A build directory of its own, without tests, beside the test suite's build/device.
build=build/device-example
cmake --preset device -B "$build" -DNUV_BUILD_TESTS=OFF -DNUV_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" --target pool_share device_app tasks_and_tracing nuvpool
echo "Running examples/pool_share on the device target (qemu-ppc):"
qemu-ppc -L /usr/powerpc-linux-gnu "$build/examples/pool_share"
echo "Running examples/device_app on the device target (qemu-ppc):"
# Its pool file stays behind, for nuvpool to show what the run left in it.
prefix="nuv_example_$$_"
NUV_POOL_PREFIX=$prefix NUV_EXAMPLE_KEEP_POOL=1 qemu-ppc -L /usr/powerpc-linux-gnu \
  "$build/examples/device_app"
echo "What examples/device_app left in its pool (nuvpool show, device target):"
qemu-ppc -L /usr/powerpc-linux-gnu "$build/tools/nuvpool/nuvpool" show --prefix "$prefix" device_app
rm -f /var/tmp/"$prefix"*
echo "Running examples/tasks_and_tracing on the device target (qemu-ppc):"
qemu-ppc -L /usr/powerpc-linux-gnu "$build/examples/tasks_and_tracing"
