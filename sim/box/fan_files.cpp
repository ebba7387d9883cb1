#include "fan_files.h"

#include <cstdio>
#include <string>

namespace vexosim {
namespace {

// Internal groups in low and high mode, an expansion unit group, the CPU
// fan, and the ADT and management controller forms of the same board.
constexpr const char *kVcemdXml = R"(<?xml version="1.0" encoding="UTF-8"?>
<vcemd>
  <fan_config type="DUAL_MODE_LOW" hibernation_speed="ULTRA_LOW" hw_version="VXBOARD-FAN-1">
    <disk_temperature fan_speed="LOW" action="NONE">0</disk_temperature>
    <disk_temperature fan_speed="MIDDLE" action="NONE">40</disk_temperature>
    <disk_temperature fan_speed="HIGH" action="ALERT_LED" period="10">50</disk_temperature>
    <disk_temperature fan_speed="FULL" action="SHUTDOWN" threshold="3">61</disk_temperature>
    <cpu_temperature fan_speed="LOW">0</cpu_temperature>
    <cpu_temperature fan_speed="HIGH">80</cpu_temperature>
    <cpu_temperature fan_speed="FULL" action="SHUTDOWN">95</cpu_temperature>
    <m2_temperature fan_speed="LOW">0</m2_temperature>
    <m2_temperature fan_speed="VERY_HIGH" action="ALERT_LED">70</m2_temperature>
    <m2_temperature fan_speed="FULL">80</m2_temperature>
    <xnic01_temperature fan_speed="30%25hz">0</xnic01_temperature>
    <xnic01_temperature fan_speed="60%25hz">75</xnic01_temperature>
    <xnic01_temperature fan_speed="99%25hz" action="SHUTDOWN">105</xnic01_temperature>
    <nic_temperature fan_speed="MIDDLE">0</nic_temperature>
    <nic_temperature fan_speed="FULL" action="SHUTDOWN">100</nic_temperature>
  </fan_config>
  <fan_config type="DUAL_MODE_HIGH" hibernation_speed="LOW" period="15" threshold="4">
    <disk_temperature fan_speed="MIDDLE">0</disk_temperature>
    <disk_temperature fan_speed="HIGH">38</disk_temperature>
    <disk_temperature fan_speed="FULL" action="SHUTDOWN">61</disk_temperature>
    <cpu_temperature fan_speed="MIDDLE">0</cpu_temperature>
    <cpu_temperature fan_speed="FULL" action="SHUTDOWN">95</cpu_temperature>
  </fan_config>
  <fan_config type="DUAL_MODE_LOW_EBOX">
    <disk_temperature fan_speed="010">0</disk_temperature>
    <disk_temperature fan_speed="100">45</disk_temperature>
    <disk_temperature fan_speed="111" action="SHUTDOWN">60</disk_temperature>
    <fan_module_config order="1" module="0"/>
    <fan_module_config order="2"/>
  </fan_config>
  <fan_config type="CPUFAN">
    <cpu_temperature fan_speed="STOP">0</cpu_temperature>
    <cpu_temperature fan_speed="MIDDLE">60</cpu_temperature>
    <cpu_temperature fan_speed="FULL" action="SHUTDOWN">95</cpu_temperature>
  </fan_config>
  <adt_fan_config type="DUAL_MODE_HIGH" hw_version="VXBOARD-ADT-1" full_speed="85" full_speed_hyst="5" peci_offset="2" skip_check_temp="0">
    <alert_config name="disk" alert_temp="55" turbo_temp="50" underclock_temp="45" shutdown_temp="61" period="20" threshold="6" full_speed="58" full_speed_hyst="3"/>
    <alert_config name="cpu" alert_temp="90" shutdown_temp="100" period="20" threshold="6" full_speed="95" full_speed_hyst="5"/>
    <pwm_config name="pwm1" sensor_type="allpeci" high_freq="yes" pwm_duty_low="30" pwm_duty_high="100" pwm_min_below_tmin="no"/>
    <sensor_config name="peci0" min="40" therm="90" range="32" crit_hyst="4"/>
    <fan_mapping_config name="internal" order="1" pwm="pwm1"/>
    <fan_mapping_config name="internal" order="2" module="1" pwm="pwm1"/>
  </adt_fan_config>
  <bmc_fan_config type="DUAL_MODE_LOW" hw_version="VXBOARD-BMC-1" alert_duty="80">
    <alert_config name="disk" alert_temp="55" shutdown_temp="61" period="20" threshold="6" fullspd_temp="58" fullspd_hyst="3"/>
    <alert_config name="cpu" alert_temp="90" shutdown_temp="100" period="20" threshold="6" fullspd_temp="95" fullspd_hyst="5"/>
    <fan_mapping_config name="internal" order="2"/>
    <fan_mapping_config name="internal" order="1"/>
  </bmc_fan_config>
</vcemd>
)";

std::string hex(int v)
{
	char b[16];
	std::snprintf(b, sizeof b, "0x%04x\n", v);
	return b;
}

} // namespace

void fanFiles(const Box &box, Tree &tree)
{
	(void)box;
	tree.file("/usr/vexo/etc.defaults/vcemd.xml", kVcemdXml);
	// Where the fan loop publishes the disk warning temperature, under its lock.
	tree.dir("/var/lock");
	tree.dir("/run");
	tree.file("/dev/vexobios", "{\"board_fans\": " + std::to_string(kBoardFans) +
					   ", \"cpu_temperatures\": [52, 57], \"sys_temperature\": 38}\n");
	const std::string nic = "/sys/bus/pci/devices/0000:05:00.0/";
	tree.file(nic + "subsystem_vendor", hex(0x7053));
	tree.file(nic + "subsystem_device", hex(kFanNicDevice));
	// The adapter's port with its sensor, and a SAS host with its controller's.
	tree.file(nic + "net/eth2/temperature", "47.5\n");
	tree.link("/sys/class/net/eth2", "/sys/bus/pci/devices/0000:05:00.0/net/eth2");
	tree.link("/sys/bus/pci/devices/0000:05:00.0/net/eth2/device", "/sys/bus/pci/devices/0000:05:00.0");
	const std::string sas = "/sys/devices/pci0000:00/0000:00:03.0/host8/";
	tree.file(sas + "scsi_host/host8/ioc_temperature", "52\n");
	tree.file(sas + "scsi_host/host8/board_name", "VX-SAS9300\n");
	tree.dir(sas + "sas_host/host8");
	tree.link("/sys/class/sas_host/host8", sas + "sas_host/host8");
	tree.link(sas + "sas_host/host8/device", sas.substr(0, sas.size() - 1));
}

} // namespace vexosim
