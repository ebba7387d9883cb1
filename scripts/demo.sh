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
# health: the verdict of every disk from its SMART attributes and self-tests
# (sde had an attribute at its threshold once, sdf has one now, sdd an extended test that found
# damage); --refresh fills the caches the overview's HEALTH column reads
echo "# health: healthy, warning, critical and failing disks"
run health --all --refresh
run health sdd --json
run smart test start sdb --type extend
run smart test status sdb
run smart test stop sdb
run smart tests sdb
# overview: every disk of the box at a glance. No platform daemon runs here,
# so it walks /sys; a snapshot written as the daemon writes it (with the
# unit's last disk asleep, so its temperature is not read) is read back.
echo "# overview: every disk of the box at a glance"
run overview
run snapshot write --hibernating sdme
run overview --snapshot
run --json disk list --walk | sed -n '1,30p'
# one drive up close: what it says of itself, its SMART attributes and
# temperature through the library, and the same drive through the real
# smartctl and nvme, which the box runs on its emulated drives
echo "# one drive up close"
run drive identify sdc
run smart attrs sdc
run smart temp sdc
run disk serial sdc --ui
echo "\$ smartctl -H /dev/sdc"
build/bin/vexosim run "$root" -- /usr/bin/smartctl -H /dev/sdc || true
echo
echo "\$ nvme smart-log /dev/nvme0n1"
build/bin/vexosim run "$root" -- /usr/sbin/nvme smart-log /dev/nvme0n1 || true
echo
run status tables health
# Nothing has computed per-disk values on a freshly built box yet; the
# sample root shows what the cache holds once they have.
echo "\$ vexohw --sysroot examples/sample-sysroot cache show"
build/bin/vexohw --sysroot "$top/examples/sample-sysroot" cache show
# the update servers: a real HTTPS server on 127.0.0.1 with the box's own CA,
# and a firmware archive signed with the box's key, checked by the library
echo "# the box's update servers and a signed firmware archive"
build/bin/vexosim pack keys "$root"
mkdir -p "$root/srv/vexosim/getSSDsInfo" "$root/srv/vexosim/ssd/v1/getUpdate" "$root/tmp/kit/firmware"
echo '{}' >"$root/srv/vexosim/getSSDsInfo/v7"
echo '[]' >"$root/srv/vexosim/ssd/v1/getUpdate/index.json"
rm -f "$root/run/vexosim/serve.port"
build/bin/vexosim serve "$root" 2>/dev/null &
serve=$!
trap 'kill $serve 2>/dev/null' EXIT
for _ in 1 2 3 4 5 6 7 8 9 10; do [ -s "$root/run/vexosim/serve.port" ] && break; sleep 0.3; done
run server check
echo "demo firmware" >"$root/tmp/kit/firmware/DEMO100.bin"
build/bin/vexosim pack pack 7 "$root/run/vexosim/archive-keys/7.key" "$root/tmp/DEMO100.sa" "$root/tmp/kit"
run archive verify /tmp/DEMO100.sa
run archive verify /tmp/DEMO100.sa --type package || true
echo
# power: the box's platform daemon runs (each vexosim run starts it; here it
# is started once for the whole block); a disk is put to sleep, and the
# overview and the health verdict ask it only its power mode (CHECK POWER
# MODE), so it stays asleep; a timer change goes to /etc/vexoinfo.conf and
# to the daemon.
echo "# power: a disk put to sleep, and left asleep"
build/bin/vexosim start "$root"
trap 'kill $serve 2>/dev/null; build/bin/vexosim stop "$root"' EXIT
run daemon status
run power standby sda
: >"$root/run/vexosim/drive/sda.log"
run overview
run health sda
run smart temp sda
run power status sda sdc
echo "\$ cat /run/vexosim/drive/sda.log   (all that reached the sleeping drive)"
cat "$root/run/vexosim/drive/sda.log"
echo
run power timers set standby 30
run power timers
echo "\$ cat /var/log/vcemd_sim.log   (what the daemon received)"
cat "$root/var/log/vcemd_sim.log"
