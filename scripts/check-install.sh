#!/usr/bin/env bash
# Installs a built target into a scratch prefix, then builds and runs a small program against it
# twice: through find_package(Nuv) and through pkg-config's nuv.pc; runs the installed nuvpool.
set -eu
cd "$(dirname "$0")/.."
preset=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

case "$preset" in
  device) toolchain=powerpc-linux-gnu; run=(qemu-ppc -L /usr/powerpc-linux-gnu) ;;
  host) toolchain=i686-linux-gnu; run=() ;;
  *) echo "usage: $0 device|host" >&2; exit 2 ;;
esac
# Where the kernel refuses i686 programs, the build's toolchain chose to run them emulated.
cache="build/$preset/CMakeCache.txt"
if grep -qx 'NUV_HOST_RUN:INTERNAL=emulator' "$cache"; then
  run=("$(sed -n 's/^NUV_QEMU_I386:FILEPATH=//p' "$cache")")
fi

cmake --install "build/$preset" --prefix "$prefix" >/dev/null
cmake -S tests/install -B "$prefix/consumer" \
  -DCMAKE_TOOLCHAIN_FILE="$prefix/lib/cmake/Nuv/toolchains/$toolchain.cmake" \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
"${run[@]}" "$prefix/consumer/nuv_consumer"

compiler=$toolchain-g++
flags=$(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs nuv)
extra=()
[ "$preset" = host ] && extra=(-Wl,--dynamic-linker=/usr/i686-linux-gnu/lib/ld-linux.so.2
                               -Wl,-rpath,/usr/i686-linux-gnu/lib)
# shellcheck disable=SC2086 # the flags are words
"$compiler" -std=c++17 tests/install/consumer.cpp $flags "${extra[@]}" -o "$prefix/pc_consumer"
"${run[@]}" "$prefix/pc_consumer"

# The installed inspector runs and finds no pool of a prefix that nothing uses.
"${run[@]}" "$prefix/bin/nuvpool" list --prefix "nuv_install_check_$$_" | grep -q '^Pools in /var/tmp'
echo "installed nuvpool: runs"
