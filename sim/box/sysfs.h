// Disks laid out as the kernel's sysfs shows them: ATA ports and SCSI hosts
// under their controller, SCSI devices with their block directories, NVMe
// controllers with their namespaces, the /sys/block, /sys/class and
// /sys/dev links. vexosim builds its boxes with it and the tests their
// sysroots, so both see the same shapes.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "description.h"

namespace vexosim {

// Where a layout is written: vexosim's staged root or a test's sysroot.
class Sink {
public:
	virtual ~Sink() = default;
	virtual void dir(std::string_view path) = 0;
	virtual void file(std::string_view path, std::string_view content) = 0;
	// A link at `path` to the appliance path `target`, written relative.
	virtual void link(std::string_view path, std::string_view target) = 0;
};

inline constexpr const char *kPciRoot = "/sys/devices/pci0000:00";
// The AHCI controller of the internal bays.
inline constexpr const char *kBayController = "0000:00:17.0";

class Sysfs {
public:
	explicit Sysfs(Sink &out) : out_(out) {}

	// ATA port ata<ata> (port_no `portNo`) with SCSI host host<host> under
	// `controller`, a /sys/devices path. An empty `transName` leaves out the
	// disk name base and the multiplier information. Returns the host
	// directory.
	std::string ataHost(const std::string &controller, int ata, int host, int portNo,
			    const std::string &procName, const std::string &transName = "",
			    const KeyValues *pmInfo = nullptr);
	// What the appliance's kernel adds to a SCSI host directory
	// (/sys/class/scsi_host/host<n>): the name base of its disks and the
	// port multiplier's information, an empty device list when none.
	void hostNames(const std::string &scsiHost, const std::string &transName, const KeyValues *pmInfo);
	// A USB mass-storage host on root-hub port `port` of the xHCI controller.
	std::string usbHost(int port, int host, const std::string &procName);
	// A SCSI disk on channel `channel` of a host: the device directory with
	// its inquiry texts (when the device has a model) and generic node
	// sg<sg> (none when sg < 0), then the block device.
	void scsiDisk(const std::string &hostDir, int host, int channel, int sg, const Device &d);
	// An NVMe controller at a PCI endpoint with its namespace d.name.
	void nvmeDisk(const std::string &endpoint, const Device &d);
	// A block device with no bus above it (/sys/devices/virtual/block).
	void virtualDisk(const Device &d);
	// /proc/partitions for every block device laid out so far.
	const std::string &partitions() const { return partitions_; }

private:
	void blockDevice(const std::string &blk, const std::string &deviceLink, const Device &d);
	std::pair<int, int> devNumber(const Device &d);
	void partitionLine(int major, int minor, uint64_t kib, const std::string &name);

	Sink &out_;
	std::string partitions_ = "major minor  #blocks  name\n\n";
	int nextExtMinor_ = 0;
};

} // namespace vexosim
