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
run events tests --limit 3
# overview: every disk of the box at a glance. The box's daemon has written
# no snapshot yet, so it walks /sys; a snapshot written as the daemon writes
# it (with the unit's last disk asleep, so its temperature is not read) is
# read back.
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
rm -rf "$root/srv/vexosim/getSSDsInfo/v7" # vexosim serve publishes the box's database offer there
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
# the disk overview document: the box makes it at boot, while every disk is
# awake, with one element per disk serial (reading a disk's counters makes it
# if it is not there yet)
echo "# the disk overview document, as the box made it at boot"
run counters sdb
echo
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
# error accounting: the kernel counts twelve command timeouts on sdc (its
# sysfs attribute, raised here as the kernel would); the refresh turns them
# into a critical weight and the verdict names the source
echo "# error accounting: command timeouts on a disk"
echo 0xc >"$root/sys/block/sdc/device/iotmo_cnt"
run health sdc --refresh
echo
# the disk overview: the box's event daemon counts errors of the disk in bay
# 2 under its serial; the disk is pulled and put into empty bay 7, and its
# element, with its counters, follows it
echo "# the disk overview: a disk moved to another bay keeps its counters"
# its health history, one entry a month, is kept in the same element: two
# months recorded before (the clock moved back with VEXO_CLOCK_OFFSET), this
# one after the errors
for back in 5356800 2678400; do
	export VEXO_CLOCK_OFFSET=-$back
	run history record sdb
done
unset VEXO_CLOCK_OFFSET
build/bin/vexosim raise "$root" sdb unc 2
build/bin/vexosim raise "$root" sdb icrc
run counters sdb
run history record sdb
build/bin/vexosim pull "$root" 2
build/bin/vexosim plug "$root" 7 WWZ4K3LM
# the platform daemon renews its disk snapshot after a hot-plug; with a disk
# asleep it asks none of them (the internal disks hibernate together)
run snapshot write --all-hibernating
run counters sdg
run history sdg
run status sdg
echo "\$ grep -A3 SN_WWZ4K3LM /var/log/disk_overview.xml"
grep -A3 SN_WWZ4K3LM "$root/var/log/disk_overview.xml"
echo
# compat: each disk judged against the box's databases (host, adapter card,
# expansion unit) for this system version; the sleeping sda is not asked.
echo "# compat: compatibility verdicts from the box's databases"
# The firmware server publishes build 310 for the maker's NVMe drive, whose
# VN0230 this system rejects: it is told to upgrade rather than replace it.
echo '[{"model":"VEXO NM410 400GB","fw_buildnumber":310}]' >"$root/srv/vexosim/ssd/v1/getUpdate/index.json"
run compat --all
# The same disks judged for an older system version, before a cut in their
# entries' version intervals.
run compat --all --at 72000
echo
# compatibility cache: the verdicts and firmware values of every awake disk
# refreshed (sda sleeps and is left so), the overview's COMPAT column read
# from that cache, and the notifications the refresh spooled for the mailer
echo "# compatibility cache and notifications"
run compat refresh
run overview
run notify list
echo
# drive firmware: the firmware server offers a signed archive for the model of
# sda and sdg (the disk moved out of bay 2 above); it is fetched and stored,
# a plan is made, and the run flashes both drives at once with Debian's hdparm, which the drives answer with
# their new revision.
echo "# drive firmware: from the firmware server into two drives"
fw="$root/tmp/fwkit/firmware"
mkdir -p "$fw" "$root/srv/vexosim/fw"
# the identity the firmware server is asked with
grep -q '^serial=' "$root/etc.defaults/vexoinfo.conf" ||
	printf 'group_id="demo"\nserial="1930PDN012345"\n' >>"$root/etc.defaults/vexoinfo.conf"
printf 'model=ST8000VN004-3CP101\nfirmware=SC61\n' >"$fw/ST8000-SC61.bin"
truncate -s 4096 "$fw/ST8000-SC61.bin"
printf 'md5sum="%s"\nmodel="ST8000VN004-3CP101"\nfirmware="SC61"\nbuild_number="61"\n' \
	"$(md5sum <"$fw/ST8000-SC61.bin" | cut -c1-32)" >"$fw/ST8000-SC61.bin.FW_INFO"
build/bin/vexosim pack pack 7 "$root/run/vexosim/archive-keys/7.key" "$root/srv/vexosim/fw/st8000.sa" "$fw"
printf '[{"size_in_bytes":%s,"file":"https://fwupdate.vexo.example/fw/st8000.sa"}]\n' \
	"$(stat -c %s "$root/srv/vexosim/fw/st8000.sa")" >"$root/srv/vexosim/ssd/v1/getUpdate/ST8000VN004-3CP101.json"
run firmware download ST8000VN004-3CP101
run firmware plan sda sdg
run firmware run
run firmware status
echo "\$ hdparm -I /dev/sda | grep Firmware"
build/bin/vexosim run "$root" -- /usr/bin/hdparm -I /dev/sda | grep -i firmware
echo
# drive databases: what the box has and what its update server offers, an
# update (one progress line per database), and the verdict that the newer
# compatibility database changed
echo "# drive databases updated from the box's server"
run db status
run db update
run db status --local
run compat --all
echo
# remaining life: each disk's life and the answers given about it (a
# sleeping disk is not asked); with a user threshold of 97 % the first check
# of nvme0n1 spools a warning mail, the second, at the same life, none
echo "# remaining life and its warning mail"
run life --all
printf 'remain_life_thr_enable="yes"\nremain_life_thr_value="97"\n' >>"$root/etc/vexoinfo.conf"
run life check nvme0n1
run life check nvme0n1

# firmware by the database: the maker's NVMe drive runs VN0230, which its
# database holds broken, and VN0310 is published; what the database names is
# fetched (here with Debian's curl, trusting the box's CA) and stored
echo "# drive firmware the database asks for, fetched with curl"
fw="$root/tmp/nm410kit/firmware"
mkdir -p "$fw"
printf 'model=VEXO NM410 400GB\nfirmware=VN0310\n' >"$fw/VEXO_NM410_VN0310.bin"
truncate -s 4096 "$fw/VEXO_NM410_VN0310.bin"
printf 'md5sum="%s"\nmodel="VEXO NM410 400GB"\nfirmware="VN0310"\nbuild_number="310"\n' \
	"$(md5sum <"$fw/VEXO_NM410_VN0310.bin" | cut -c1-32)" >"$fw/VEXO_NM410_VN0310.bin.FW_INFO"
build/bin/vexosim pack pack 7 "$root/run/vexosim/archive-keys/7.key" "$root/srv/vexosim/fw/nm410.sa" "$fw"
printf '[{"size_in_bytes":%s,"file":"https://fwupdate.vexo.example/fw/nm410.sa"}]\n' \
	"$(stat -c %s "$root/srv/vexosim/fw/nm410.sa")" >"$root/srv/vexosim/ssd/v1/getUpdate/VEXO NM410 400GB.json"
printf 'firmware_download_by_external_curl="yes"\n' >>"$root/etc.defaults/vexoinfo.conf"
run firmware download

# fan configuration: the board's vcemd.xml as the fan loop reads it, levels
# with their speeds, the derived full-speed groups and the controller forms
echo "# fan configuration from the box's vcemd.xml"
run fan config

# NVMe SMART information: the maker's own M.2 drive lists its health log and
# the wear counters of its vendor log page, as the drive attribute database
# describes them (one of them under the hidden name), and the same database's
# bundle settings for its model
echo "# NVMe SMART information: health values and vendor attributes"
run smart attrs nvme1n1
run firmware bundle nvme1n1

# indicators: the LED dimmer over the box's emulated I2C chip, a schedule
# stored and applied, and a drive's LED switched for two seconds (the
# daemon's log shows the requests, the child puts it back)
echo "# LED dimmer, its schedule, and a drive's locate LED"
run led brightness set 5
run led schedule set 2 "$(printf '%0120d' 0 | tr 0 1)$(printf '%048d' 0 | tr 0 2)"
build/bin/vexosim start "$root"
run led locate sda 2
sleep 1
run led status sda
sleep 2
run led faulty sdb
run led normal sdb
build/bin/vexosim stop "$root"
grep 'command=\(14\|28\|29\)' "$root/var/log/vcemd_sim.log" | cut -c1-60 || true

# expansion units: the box's unit takes GPIO command words; the 60-bay box's
# fourth unit, an XU11, is driven by I2C lines written into vexo_pm_i2c (the
# simulated unit driver logs each line it is handed)
echo "# expansion units: GPIO words and I2C lines"
run eunit list
root60=$top/build/demo-root60
build/bin/vexosim build "$top/examples/box60.json" "$root60" >/dev/null
main=$root
root=$root60
run eunit fan 16 middle
run eunit fans 16
run eunit button 16 disable
run eunit power 16 off
run eunit list
root=$main
cat "$root60"/run/vexosim/unit/*.log

# status mail: a disk whose commands time out calls for a warning mail; the
# rows it would carry, then the mail spooled (and the hot spare manager told)
echo "# a disk's status mail"
mkdir -p "$root/run/vexostorage/disks/sda"
printf '5' >"$root/run/vexostorage/disks/sda/timeout_weight"
run mail content sda
run mail send sda
rm -f "$root/run/vexostorage/disks/sda/timeout_weight"

# fan loop: one pass over the box's tables, each read from its source (disks,
# the adapter's sensor), the level it picks, and the speed each group runs at
echo "# fan levels: temperatures, levels and speeds per group"
run fan levels

# the 60-bay box's fan loop: each expansion unit's group read from that
# unit's own disks; stopping the box removes the units' semaphores
echo "# fan levels with expansion units"
root=$root60
run fan levels
root=$main
build/bin/vexosim stop "$root60"

# devices and the system: the M.2 drives, where the system lives, a disk id
# turned back into its path, and the running version
echo "# devices and the system"
run port m2
run disk system
run disk by-id internal_0_3
run system version

# drive firmware settings: the upgrade booked for shutdown and taken back
# (the second call finds it so already), and the firmware server's offer
echo "# firmware settings and the firmware server's offer"
run firmware config set on-shutdown yes
run firmware config set on-shutdown yes
run firmware config set on-shutdown no
run firmware online
run firmware online "VEXO NM410 400GB"

# fan settings and temperatures: the machine's temperature with the sensor
# that answered, and the user's fan speed set twice (the second finds it so)
echo "# fan settings and the system temperature"
run system temperature
run fan speed set high
run fan speed set high
run fan speed set on

# health details and the serial the user sees: a disk's bad sectors now and
# over the year (this month recorded first), the serial stored on the drive
# once (the second call writes nothing), and whether an upgrade is going
echo "# health figures and history, the stored serial, the firmware upgrade"
run health current sdf
build/bin/vexosim run "$root" -- build/bin/vexohw history record sdf >/dev/null
run health history sdf --type cumulative
run disk mask-serial set sda WWZ4K1QA
run disk mask-serial set sda WWZ4K1QA
run firmware finished

# NVMe drives: where each sits on its M.2 card, then one drive up close and a
# log page (the firmware slots) as bytes
echo "# NVMe drives and their slots"
run nvme all
run nvme info nvme1n1
run nvme log nvme1n1 firmware --length 32

# support views: the debug overrides and action flags of a disk, the kit
# version recorded twice (the second writes nothing), one notification spooled
echo "# debug overrides, the offline kit version, a notification"
echo 'support_disk_status_debug="yes"' >>"$root/etc.defaults/vexoinfo.conf"
printf '[WWZ4K1QA]\ntemp="61"\nsmart_test_quick="aborted"\n' >"$root/tmp/.disk_status_debug"
run debug sda
run db kit-version set 3
run db kit-version set 3
run notify send DemoTag "%MODEL%=ST8000VN004-3CP101"

# the compatibility database asked without a disk: a drive before it is
# bought, and the newest firmware listed for the maker's NVMe drive
echo "# compatibility of a drive model, and the newest firmware listed"
run compat model "TOSHIBA MG08ACA16TE" 0102
run compat latest "VEXO NM410 400GB" --card M2C-D2
