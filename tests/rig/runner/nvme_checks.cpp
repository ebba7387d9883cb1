// The NVMe disk on the kernel's nvme driver, with a critical warning that
// QEMU was told to raise. nvme-cli reads the same controller for comparison.
#include <cstring>
#include <vexohw/smartctl.h>

#include "rig.h"

namespace {

// "critical_warning : 0x4" / "temperature : 40 °C (313 K)" lines of nvme smart-log.
long toolNumber(const std::string &text, const std::string &key)
{
	std::string v = rig::field(text, key);
	return v.empty() ? -1 : std::strtol(v.c_str(), nullptr, 0);
}

} // namespace

// Identity through the platform's admin calls against sysfs and nvme-cli.
RIG_CHECK(main, nvme_identity)
{
	for (rig::Disk *d : g.atBoot({"nvme"})) {
		if (d->name.empty()) {
			c.fail("%s did not come up", d->role.c_str());
			continue;
		}
		std::string sys = "/sys/block/" + d->name + "/device/";
		std::string sysSerial = rig::trim(rig::readFile(sys + "serial"));
		std::string sysFw = rig::trim(rig::readFile(sys + "firmware_rev"));
		std::string sysModel = rig::trim(rig::readFile(sys + "model"));
		c.eqStr(d->role + " sysfs serial", sysSerial, d->serial);
		c.expect(SmartEnable(d->path().c_str()) == 0, "SmartEnable(%s) is not 0 for an NVMe disk", d->path().c_str());
		char fw[64] = {}, serial[64] = {}, model[128] = {};
		if (c.expect(VEXONVMeFirmAndSerialRead(d->path().c_str(), fw, sizeof(fw), serial, sizeof(serial)) == 0,
			     "VEXONVMeFirmAndSerialRead(%s) failed", d->path().c_str())) {
			c.eqStr(d->role + " serial", serial, sysSerial);
			c.eqStr(d->role + " firmware", fw, sysFw);
		}
		if (c.expect(VEXONVMeDiskModelGet(d->path().c_str(), model, sizeof(model)) == 0,
			     "VEXONVMeDiskModelGet(%s) failed", d->path().c_str()))
			c.eqStr(d->role + " model", model, sysModel);
	}
}

// Temperature and the injected critical warning from the health log.
RIG_CHECK(main, nvme_health)
{
	for (rig::Disk *d : g.atBoot({"nvme"})) {
		if (d->name.empty()) {
			c.fail("%s did not come up", d->role.c_str());
			continue;
		}
		int status = 0;
		std::string log = rig::run({"/usr/sbin/nvme", "smart-log", d->path()}, &status);
		long warning = toolNumber(log, "critical_warning");
		long temperature = toolNumber(log, "temperature");
		c.eqInt(d->role + " nvme smart-log critical_warning (QEMU's injection)", warning, d->critWarning);
		if (!c.expect(temperature > 0, "%s: nvme smart-log gives no temperature (exit %d)", d->name.c_str(), status))
			c.note("nvme smart-log: %s", log.substr(0, 600).c_str());
		unsigned char page[512] = {};
		if (c.expect(VEXONVMeLogGet(d->path().c_str(), 2, page, sizeof(page)) == 0, "VEXONVMeLogGet(%s, 2) failed",
			     d->path().c_str()))
			c.eqInt(d->role + " health log byte 0 (critical warning)", page[0], d->critWarning);
		c.eqInt(d->role + " VEXONVMeTemperatureGet", VEXONVMeTemperatureGet(d->path().c_str()), temperature);
	}
}
