# Sourced by the scripts that run the test suite: building it, and what a run leaves behind.

# Pool files of this script's test programs begin with this; what a run leaves is counted and
# removed afterwards without touching another run's files.
export NUV_TEST_POOL_PREFIX="nuvtest_run$$_"

# nuv_build_suite PRESET: configures PRESET with the tests and builds it; fails if either fails.
# With NUV_WARNINGS_AS_ERRORS=ON in the environment (CI), any warning fails the build.
nuv_build_suite() {
  cmake --preset "$1" -DNUV_BUILD_TESTS=ON \
    -DNUV_WARNINGS_AS_ERRORS="${NUV_WARNINGS_AS_ERRORS:-OFF}" >/dev/null &&
    cmake --build --preset "$1"
}

# nuv_remove_left_pool_files: removes the pool files that this script's test programs left in
# /var/tmp (a program killed by its time limit cannot remove its own) and prints how many.
nuv_remove_left_pool_files() {
  local files=(/var/tmp/"$NUV_TEST_POOL_PREFIX"*)
  [ -e "${files[0]}" ] || files=()
  rm -f -- "${files[@]}"
  echo "${#files[@]}"
}

# nuv_failed_tests LOG: the names of the tests that a ctest LOG lists as failed, one a line.
nuv_failed_tests() {
  sed -n '/^The following tests FAILED:/,$ s/^[[:space:]]*[0-9]* - \(.*\) (.*)$/\1/p' "$1"
}
