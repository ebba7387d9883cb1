// Disks laid out in a test sysroot by the simulator's sysfs code
// (sim/box/sysfs.h): /sys/block/<name> is a relative link into /sys/devices,
// with the ATA port and SCSI host directories above the block directory.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/vexotest.h"

namespace vexo::test {

class DiskLayout {
public:
	explicit DiskLayout(const Sysroot &root) : root_(root) {}

	// A SATA disk on ATA port `ataPort` under the PCI chain `pci`
	// ("0000:00:17.0" or "0000:00:1c.0/0000:03:00.0"). Creates /sys/block/<name>
	// (size in 512-byte sectors), its device directory, ata_port/ata<n>/port_no,
	// scsi_host/host<n>/proc_name (`driver`), the /sys/class links and an empty
	// /dev/<name>. Returns the host number used: ataPort - 1.
	int sata(const std::string &name, int ataPort, const std::string &pci = "0000:00:17.0",
		 unsigned long long sectors = 1953525168ULL, const std::string &driver = "ahci") const;
	// An NVMe namespace under the PCI chain: .../<pci>/nvme/nvme<c>/<name>.
	void nvme(const std::string &name, const std::string &pci) const;
	// A plain block device with no bus directories (sysd, mmcblk, vexoboot).
	void plain(const std::string &name) const;
	// An expansion unit behind SCSI host `host`: vexo_pm_info and vexo_diskname_trans.
	void unit(int host, const std::string &base, const std::vector<std::string> &devices,
		  const std::string &unique = "XU05", const std::string &power = "") const;
	// The four port masks in /etc.defaults/vexoinfo.conf (hex text; "" leaves a key out),
	// with extra key-value pairs.
	void portMaps(const std::string &usb, const std::string &esata, const std::string &internal,
		      const std::string &cache, const std::vector<std::pair<std::string, std::string>> &extra = {}) const;
	// /etc.defaults/vexoplatform.json
	void platform(const std::string &json) const;

private:
	const Sysroot &root_;
};

} // namespace vexo::test
