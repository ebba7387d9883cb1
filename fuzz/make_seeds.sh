#!/bin/sh
# make_seeds.sh BUILD: writes the seed corpora fuzz/corpus/<target>/ from
# the simulator's own output: the files of the bundled twelve-bay box, the
# snapshot the library writes over it, the drive emulator's answers
# (recorded by the hostile drive), and what the box's tools and the CLI
# print or leave there. BUILD is a fuzz build tree with vexohw built.
set -eu
b=$(cd "$1" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)
c=$top/fuzz/corpus
box=$(mktemp -d)
trap 'rm -rf "$box"' EXIT
"$b/bin/vexosim" build "$top/examples/box12.json" "$box" >/dev/null
for t in sysfs_attr_fuzz proc_files_fuzz platform_json_fuzz xml_docs_fuzz disk_snapshot_fuzz drive_ata_fuzz drive_nvme_fuzz \
	disk_path_parse_fuzz kv_file_fuzz section_file_fuzz sg_raw_dump_fuzz sg_sat_identify_dump_fuzz \
	smart_info_cache_fuzz smartctl_table_fuzz status_lookup_fuzz attr_db_fuzz ebox_answer_fuzz; do
	mkdir -p "$c/$t"
done
nul() { printf '\000'; }

s=$box/sys/block/sda
{ cat "$s/size"; nul; cat "$s/queue/logical_block_size"; nul; cat "$s/device/model"; nul
  cat "$s/device/vendor"; nul; cat "$s/queue/rotational"; nul; cat "$s/device/state"; } >"$c/sysfs_attr_fuzz/box12-sda"
s=$box/sys/block/sdh
{ cat "$s/size"; nul; cat "$s/queue/logical_block_size"; nul; cat "$s/device/model"; nul
  cat "$s/device/vendor"; nul; cat "$s/queue/rotational"; nul; cat "$s/device/state"; } >"$c/sysfs_attr_fuzz/box12-sdh"

{ cat "$box/proc/partitions"; nul; printf '/dev/md0 / ext4 rw,relatime 0 0\nnone /.vexo aufs rw 0 0\n'; } >"$c/proc_files_fuzz/box12"
cp "$box/etc.defaults/vexoplatform.json" "$c/platform_json_fuzz/box12"
{ printf '\001'; cat "$top/examples/diskaction.xml"; } >"$c/xml_docs_fuzz/diskaction"

# Compatibility databases and rule files of the box, each with a model,
# firmware and system version to look up.
mkdir -p "$c/compat_db_fuzz"
d=$box/var/lib/disk-compatibility
{ cat "$d/vx1222_host_v7.db"; nul; cat "$d/host_rule.db"; nul; printf 'TOSHIBA MG08ACA16TE'; nul; printf '0102'; nul
  printf '72806.3'; } >"$c/compat_db_fuzz/box12-host"
{ cat "$d/vx1222_m2c-d2_v7.db"; nul; cat "$d/eunit_rule.db"; nul; printf 'VEXO NM410 400GB'; nul; printf 'VN0230'; nul
  printf '69000.1'; } >"$c/compat_db_fuzz/box12-card"

# The snapshot of the box as the library writes it there.
"$b/bin/vexosim" run "$box" -- "$b/bin/vexohw" snapshot write >/dev/null
{ printf '\001\000\377'; head -c 320 "$box/tmp/enumlist_det"; } >"$c/disk_snapshot_fuzz/one"
{ printf '\106\000\377'; head -c 3840 "$box/tmp/enumlist_det"; } >"$c/disk_snapshot_fuzz/seventy"
# The box has no temperature history nor mount table: one is written here
# for its disks, in the documented forms.
{ nul; printf '<?xml version="1.0"?>\n<disk_temperature>\n'
  for d in $(cd "$box/sys/block" && ls -d sd* nvme* 2>/dev/null); do
	printf '  <disk path="/dev/%s" min="24" max="47" countdown="6"/>\n' "$d"
  done
  printf '</disk_temperature>\n'; } >"$c/xml_docs_fuzz/temperature"

# The emulator's answers to each question of the drive targets: the first
# byte picks the question, the rest are the answers.
for t in drive_ata_fuzz:7 drive_nvme_fuzz:6; do
	n=${t#*:}
	t=${t%:*}
	i=0
	while [ "$i" -lt "$n" ]; do
		printf "\\$(printf %03o "$i")" >"$box/pick"
		VEXO_FUZZ_DRIVE_RECORD=$box/answers "$b/fuzz/$t" "$box/pick" >/dev/null 2>&1
		cat "$box/pick" "$box/answers" >"$c/$t/box12-$i"
		i=$((i + 1))
	done
done

inbox() { "$b/bin/vexosim" run "$box" -- "$@"; }

# Names as the box shows them: a disk, a partition, a unit's disk, an NVMe
# namespace and its partition.
for n in $(awk 'NR > 2 { print $4 }' "$box/proc/partitions"); do
	case $n in
	sd[a-z]) k=disk ;;
	sd[a-z][0-9]*) k=part ;;
	sd[a-z][a-z]) k=unit ;;
	nvme*p*) k=nvmepart ;;
	nvme*) k=nvme ;;
	*) continue ;;
	esac
	[ -e "$c/disk_path_parse_fuzz/$k" ] || printf '/dev/%s' "$n" >"$c/disk_path_parse_fuzz/$k"
done

cp "$box/etc.defaults/vexoinfo.conf" "$c/kv_file_fuzz/vexoinfo"
# A section file of the box's disks, one section each with its attributes.
for d in sda sdh; do
	printf '[%s]\nmodel="%s"\nsize=%s\nrotational=%s\n' "$d" "$(cat "$box/sys/block/$d/device/model")" \
		"$(cat "$box/sys/block/$d/size")" "$(cat "$box/sys/block/$d/queue/rotational")"
done >"$c/section_file_fuzz/disks"

# The SCT questions as the library asks them of the box's first disk.
inbox /usr/vexo/bin/sg_raw -r 512 /dev/sda 85 08 0e 00 00 00 01 00 e0 00 00 00 00 00 2f 00 \
	>"$c/sg_raw_dump_fuzz/sda" 2>&1 || true
inbox /usr/vexo/bin/sg_sat_identify /dev/sda >"$c/sg_sat_identify_dump_fuzz/sda" 2>&1 || true
# The attribute table from its heading on (the banner names the host).
inbox /usr/bin/smartctl -A /dev/sda 2>&1 | sed -n '/^=== START/,$p' >"$c/smartctl_table_fuzz/sda"

# The SMART list the overview leaves in the disk's cache.
inbox "$b/bin/vexohw" overview --walk >/dev/null
cp "$box/run/vexostorage/disks/sda/smart_info_list.cache" "$c/smart_info_cache_fuzz/sda"

# The overview's status words, each after its category.
for w in health:normal space:normal smart:normal processing:idle compatibility:support disconnect:0; do
	{ printf '%s' "${w%%:*}"; nul; printf '%s' "${w#*:}"; } >"$c/status_lookup_fuzz/${w%%:*}"
done

# Self-test pages as the box's sdd (an extended test that found damage)
# sends them: its SMART data page, the standard log and the extended log.
mkdir -p "$c/self_test_log_fuzz" "$c/smart_test_fallback_fuzz" "$c/server_info_fuzz" "$c/vcemd_message_fuzz" \
	"$c/archive_fuzz"
pages=$box/tmp/pages
mkdir -p "$pages"
inbox /usr/bin/sg_raw -r 512 -o "$pages/smart" /dev/sdd 85 08 0e 00 d0 00 01 00 00 00 4f 00 c2 00 b0 00 >/dev/null 2>&1
inbox /usr/bin/sg_raw -r 512 -o "$pages/log6" /dev/sdd 85 08 0e 00 d5 00 01 00 06 00 4f 00 c2 00 b0 00 >/dev/null 2>&1
inbox /usr/bin/sg_raw -r 512 -o "$pages/log7" /dev/sdd 85 09 0e 00 00 00 01 00 07 00 00 00 00 40 2f 00 >/dev/null 2>&1
cp "$pages/log6" "$c/self_test_log_fuzz/sdd-standard"
cat "$pages/smart" "$pages/log7" >"$c/self_test_log_fuzz/sdd-smart-extended"

# The fallback files a test run leaves for the target's disk (serial S1):
# the quick half, then the extended half, as key files; and the older
# result document.
printf 'S1_STATUS="0"\nS1_TIME="1795000000"\nS1_STATUS="7"\nS1_TIME="1795003600"\n' >"$c/smart_test_fallback_fuzz/halves"
printf '<?xml version="1.0"?>\n<smart_test>\n  <disk show="1" model="ST8000VN004-3CP101" SN="WWZ4K1QA" time="2026/11/24 10:00:00" path="/dev/sda" result="0">Completed without error</disk>\n</smart_test>\n' \
	>"$c/smart_test_fallback_fuzz/result-document"

# The update server's answer: an update and no promotion.
printf '{"success":true,"data":{"update":{"available":true,"version":"VOS 7.3","version_details":{"buildnumber":72900,"nano":0}},"promotion":{"available":false}}}' \
	>"$c/server_info_fuzz/update"

# The connector's messages: command, length (both little-endian 32-bit),
# the reply flag, then the payload (the temperature refresh, a timer change).
{ printf '\005\000\000\000\004\000\000\000\001'; printf 'temp'; } >"$c/vcemd_message_fuzz/refresh"
{ printf '\003\000\000\000\013\000\000\000\000'; printf 'standby=30\000'; } >"$c/vcemd_message_fuzz/timer"

# A signed archive as vexosim pack makes one, taken whole (odd first byte).
"$b/bin/vexosim" pack keys "$box" >/dev/null
mkdir -p "$pages/kit" && printf 'seed\n' >"$pages/kit/README"
"$b/bin/vexosim" pack pack 7 "$box/run/vexosim/archive-keys/7.key" "$pages/kit.sa" "$pages/kit" >/dev/null
{ printf '\001'; cat "$pages/kit.sa"; } >"$c/archive_fuzz/whole"

# The board's fan description as the box ships it, and a manual-mode ADT board.
mkdir -p "$c/fan_config_fuzz"
cp "$box/usr/vexo/etc.defaults/vcemd.xml" "$c/fan_config_fuzz/box12"
printf '<vcemd><adt_fan_config type="DUAL_MODE_HIGH"><alert_config name="nic" alert_temp="70"/><pwm_config name="pwm1" sensor_type="manual"/><manual_config name="cpu_temperature" temp="40" fan_speed="80"/><manual_config name="nic_temperature" temp="50" fan_speed="90"/><fan_mapping_config name="internal" order="1" module="2" pwm="pwm1"/></adt_fan_config><fan_config type="DUAL_MODE_LOW_EBOX"><disk_temperature fan_speed="40%%25hz">30</disk_temperature><fan_module_config order="1"/></fan_config></vcemd>\n' \
	>"$c/fan_config_fuzz/adt-manual-ebox"

# The drive attribute database of the box, the model of its maker NVMe drive
# and the vendor page the drive emulator answers for it.
{ printf 'VEXO NM410 400GB'; nul; cat "$box/var/lib/drive_attribute/drive_attribute.db"; nul
  printf '\000\000\000\000\001\000\000\000\014\000\000\000\042\000\000\000\226\000\000\000'; } >"$c/attr_db_fuzz/box12"

# The dimmer's description as the box ships it, with stored settings.
mkdir -p "$c/led_brightness_fuzz"
{ cat "$box/usr/vexo/etc.defaults/led_brightness.xml"; nul
  printf 'led_brightness_schedule="%s"\nled_brightness_adjusted_level="2"\n' \
	"$(printf '%056d' 0 | tr 0 1)$(printf '%056d' 0 | tr 0 2)$(printf '%056d' 0)"; } >"$c/led_brightness_fuzz/box12"

# The unit driver's answers: a register read, a short one and a poll.
printf '\001i2c=0x04\n' >"$c/ebox_answer_fuzz/read"
printf '\007i2c=0x8c 0x46 0xff\n' >"$c/ebox_answer_fuzz/short"
printf '\002[i2c]\nfanTach1=1680\nfanTach2=0\n' >"$c/ebox_answer_fuzz/poll"

# Fan sources: a debug line, a SAS host's temperature and board, an adapter's vendor.
mkdir -p "$c/fan_sources_fuzz"
{ printf '45,sda\n'; nul; printf '52.75\n'; nul; printf 'SAS9300-8e\n'; nul; printf '0x7053\n'; } >"$c/fan_sources_fuzz/hot"
{ printf '0\n'; nul; printf 'nan\n'; nul; nul; printf '7053\n'; } >"$c/fan_sources_fuzz/off"
