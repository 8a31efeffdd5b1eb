#!/usr/bin/env bash
# Lets a kernel that refuses 32-bit x86 programs ("Exec format error") run them under qemu-i386:
# mounts binfmt_misc when it is not mounted and registers qemu-i386 for 32-bit little-endian x86
# ELF executables and position-independent executables. Flag F opens the emulator now, so
# programs exec'd later, in any mount namespace, find it too. Needs root; safe to run again.
set -eu

binfmt=/proc/sys/fs/binfmt_misc
entry=$binfmt/qemu-i386
# ELF header through e_machine: class 32-bit, little-endian, type EXEC or DYN, machine 386.
magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'

if [ "$(id -u)" -ne 0 ]; then
  echo "$0: registering an emulator with binfmt_misc needs root" >&2
  exit 1
fi
emulator=$(command -v qemu-i386) || {
  echo "$0: qemu-i386 not found: install Debian's qemu-user" >&2
  exit 1
}
if [ ! -e "$binfmt/register" ]; then
  echo "Mounting binfmt_misc on $binfmt"
  mount -t binfmt_misc binfmt_misc "$binfmt"
fi
if [ -e "$entry" ]; then
  if ! grep -qx enabled "$entry"; then
    echo "Enabling $entry"
    echo 1 >"$entry"
  fi
else
  echo "Registering $emulator for 32-bit x86 programs in $binfmt"
  echo ":qemu-i386:M::$magic:$mask:$emulator:F" >"$binfmt/register"
fi
