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

# nuv_enable_i686_programs: some x86_64 kernels refuse 32-bit x86 programs ("Exec format
# error"). On such a kernel, as root, registers qemu-i386 for them (scripts/i686-binfmt.sh);
# otherwise prints the command that does it, and the host builds run every program under
# qemu-i386 themselves. Changes nothing where i686 programs run. Needs g++-i686-linux-gnu.
nuv_enable_i686_programs() {
  local probe
  probe=$(mktemp -d)
  printf 'int main(void) { return 0; }\n' >"$probe/probe.c"
  i686-linux-gnu-gcc -static "$probe/probe.c" -o "$probe/probe"
  if ! "$probe/probe" 2>/dev/null; then
    echo "This kernel refuses 32-bit x86 programs."
    if [ "$(id -u)" -eq 0 ]; then
      scripts/i686-binfmt.sh
      "$probe/probe" || echo "Still refused: the host builds run their programs under qemu-i386."
    else
      echo "The host builds run their programs under qemu-i386; to run them directly instead:"
      echo "  sudo scripts/i686-binfmt.sh"
    fi
  fi
  rm -rf "$probe"
}
