#!/bin/sh
# Installs what the real-kernel rig needs on the host: QEMU, the static
# busybox and the real disk tools that go into the guest, cpio for the
# initramfs and kmod for the module order. The kernel itself is not
# installed: rig.py unpacks Debian's package into the build tree.
set -eu
exec "$(dirname "$0")/../../scripts/deps.sh" qemu-system-x86 qemu-utils busybox-static smartmontools hdparm \
	nvme-cli sg3-utils cpio kmod
