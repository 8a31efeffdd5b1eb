# Sourced by the project's scripts: makes sure the Debian packages that a step needs are present.

# nuv_require_packages PACKAGE...: as root, installs the missing ones (apt-get update once, then
# apt-get install -y), saying what it installs; otherwise prints the one command to run and exits.
nuv_require_packages() {
  local missing=()
  local package
  for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
      missing+=("$package")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return 0
  fi
  if [ "$(id -u)" -ne 0 ]; then
    echo "Missing Debian packages: ${missing[*]}" >&2
    echo "Install them with:" >&2
    echo "  sudo sh -c 'apt-get update && apt-get install -y ${missing[*]}'" >&2
    exit 1
  fi
  echo "Installing Debian packages: ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
}

# What building for the device needs, and running its programs under emulation.
NUV_DEVICE_PACKAGES=(cmake make g++-powerpc-linux-gnu qemu-user)
# What the host targets need, sanitizers included.
NUV_HOST_PACKAGES=(cmake make g++-i686-linux-gnu libasan8-i386-cross libubsan1-i386-cross)
# What the tests need beyond the toolchains.
NUV_TEST_PACKAGES=(googletest pkgconf)
