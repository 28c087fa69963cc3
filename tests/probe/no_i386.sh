#!/usr/bin/env bash
# Makes this machine one whose kernel starts no 32-bit x86 programs, as CI
# machines without IA32 emulation are, so that the qemu-i386 way of test.sh
# can be tried here. As root; needs binfmt_misc.
#
#   bash tests/probe/no_i386.sh on     every i386 program fails to start
#   bash tests/probe/no_i386.sh off    back to normal
#
# A binfmt_misc entry for i386 ELF files is looked at before the kernel's own
# ELF loader; its interpreter refuses, with the message such a kernel gives.
# qemu-i386 loads the programs itself, so it is not affected.
set -euo pipefail
dir=/proc/sys/fs/binfmt_misc
entry=orbelle_no_i386
refuser=/usr/local/libexec/orbelle-no-i386
[ -e "$dir/register" ] || mount -t binfmt_misc binfmt_misc "$dir"
case ${1:-} in
  on)
    mkdir -p "$(dirname "$refuser")"
    printf '#!/bin/sh\necho "$1: cannot execute binary file: Exec format error" >&2\nexit 126\n' >"$refuser"
    chmod 755 "$refuser"
    [ -e "$dir/$entry" ] || printf '%s' ":$entry:M::\\x7fELF\\x01\\x01\\x01\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x02\\x00\\x03\\x00:\\xff\\xff\\xff\\xff\\xff\\xfe\\xfe\\x00\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xff\\xfe\\xff\\xff\\xff:$refuser:" >"$dir/register" ;;
  off)
    [ -e "$dir/$entry" ] && echo -1 >"$dir/$entry"
    rm -f "$refuser" ;;
  *) echo "usage: $0 on|off" >&2; exit 2 ;;
esac
