#!/bin/sh
# Builds vexohw and the simulated 12-bay appliance, then shows what the box
# holds through vexohw. An argument names another appliance description.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
"$top/scripts/deps.sh"
scripts/build.sh build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
desc=${1:-$top/examples/box12.json}
root=$top/build/demo-root
build/bin/vexosim build "$desc" "$root"
run() {
	echo "\$ vexohw $*"
	build/bin/vexosim run "$root" -- build/bin/vexohw "$@"
	echo
}
echo
echo "# the box: $(sed -n 's/^upnpmodelname="\(.*\)"/\1/p' "$root/etc.defaults/vexoinfo.conf")"
echo
echo "\$ cat /proc/partitions"
cat "$root/proc/partitions"
echo
echo "# where each disk sits (/sys/block links, as the kernel lays them out)"
for link in "$root"/sys/block/*; do
	printf '  %-8s -> %s\n' "${link##*/}" "$(readlink "$link" | sed 's|^\.\./||')"
done
echo
# devices: each device of the box with its port type and disk id, as the
# library places it from the port maps, the NVMe locations and the unit
echo "# devices: port type and disk id of every device"
run disk where --all
# overview: every disk of the box at a glance. No platform daemon runs here,
# so it walks /sys; a snapshot written as the daemon writes it (with the
# unit's last disk asleep, so its temperature is not read) is read back.
echo "# overview: every disk of the box at a glance"
run overview
run snapshot write --hibernating sdme
run overview --snapshot
run --json disk list --walk | sed -n '1,30p'
# one drive up close: what it says of itself, its SMART attributes and
# temperature through the library, and the same drive through the box's
# stand-in smartctl, which answers from the same emulated drive
echo "# one drive up close"
run drive identify sdc
run smart attrs sdc
run smart temp sdc
run disk serial sdc --ui
echo "\$ smartctl -H /dev/sdc   (the simulated box's own tool)"
build/bin/vexosim run "$root" -- "$root/usr/bin/smartctl" -H /dev/sdc || true
echo
run status tables health
# Nothing has computed per-disk values on a freshly built box yet; the
# sample root shows what the cache holds once they have.
echo "\$ vexohw --sysroot examples/sample-sysroot cache show"
build/bin/vexohw --sysroot "$top/examples/sample-sysroot" cache show
echo
# power: the box's platform daemon runs; a disk is put to sleep, and the
# status commands ask it only its power mode (CHECK POWER MODE), so it stays
# asleep; a timer change goes to /etc/vexoinfo.conf and to the daemon.
echo "# power: a disk put to sleep, and left asleep"
build/bin/vexosim start "$root"
trap 'build/bin/vexosim stop "$root"' EXIT
run daemon status
run power standby sda
: >"$root/run/vexosim/drive/sda.log"
run overview
run smart temp sda
run power status sda sdc
echo "\$ cat /run/vexosim/drive/sda.log   (all that reached the sleeping drive)"
cat "$root/run/vexosim/drive/sda.log"
echo
run power timers set standby 30
run power timers
echo "\$ cat /var/log/vcemd_sim.log   (what the daemon received)"
cat "$root/var/log/vcemd_sim.log"
