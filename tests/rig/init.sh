#!/bin/busybox sh
# The rig guest's first process: mounts the kernel's filesystems, loads the
# storage drivers, waits for the disks, runs the checks of the guest named
# on the kernel command line and powers off. The host reads the results on
# the second serial port and this script's end marker on the console.
/bin/busybox mkdir -p /proc /sys /dev /tmp /run /bin /sbin /usr/bin /usr/sbin
/bin/busybox --install -s
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
export PATH=/usr/sbin:/usr/bin:/sbin:/bin:/usr/vexo/bin:/usr/vexo/sbin
export LD_LIBRARY_PATH=/lib/x86_64-linux-gnu:/usr/lib/x86_64-linux-gnu

guest=unknown
for arg in $(cat /proc/cmdline); do
	case "$arg" in rig.guest=*) guest=${arg#rig.guest=} ;; esac
done

finish() {
	echo "RIG-DONE guest=$guest rc=$1"
	sync
	poweroff -f
	sleep 10
}

# Drivers in dependency order, each once; a failure is reported, not fatal.
while read -r ko args; do
	# shellcheck disable=SC2086
	insmod "$ko" $args || echo "RIG-LOG insmod $ko failed"
done < /rig/modules

# The disks present at boot; USB and the SCSI scans settle last.
want=$(cat "/rig/$guest.count" 2>/dev/null || echo 0)
i=0
while :; do
	n=0
	for d in /sys/block/sd* /sys/block/nvme*; do
		[ -e "$d" ] && n=$((n + 1))
	done
	[ "$n" -ge "$want" ] && break
	i=$((i + 1))
	if [ "$i" -ge 600 ]; then
		echo "RIG-LOG only $n of $want disks after 60 s:" $(ls /sys/block)
		break
	fi
	sleep 0.1
done
echo "RIG-LOG disks up after $((i / 10)).$((i % 10)) s:" $(ls /sys/block)

/usr/vexo/bin/vexorig --guest "$guest" --disks "/rig/$guest.disks" --out /dev/ttyS1
finish $?
