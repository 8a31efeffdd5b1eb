#!/usr/bin/env bash
# Checks the tree against .clang-format and .clang-tidy (library, tests, examples, benchmarks).
set -eu
cd "$(dirname "$0")/.."
. scripts/deps.sh
nuv_require_packages clang-format clang-tidy "${NUV_HOST_PACKAGES[@]}"

mapfile -t sources < <(git ls-files '*.cpp' '*.h')
clang-format --dry-run --Werror "${sources[@]}"

[ -f build/host/compile_commands.json ] || cmake --preset host >/dev/null
mapfile -t units < <(git ls-files '*.cpp' | grep -v '^tests/install/')
clang-tidy --quiet -p build/host --extra-arg=--target=i686-linux-gnu "${units[@]}"
echo "lint: clean"
