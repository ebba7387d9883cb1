#include "sysfs.h"

#include <cstdio>

namespace vexosim {

namespace {

const char *kUsbXhci = "0000:00:14.0";

std::string quoted(const KeyValues &kv)
{
	std::string out;
	for (const auto &[k, v] : kv)
		out += k + "=\"" + v + "\"\n";
	return out;
}

// The value the sd driver gives a name's letters: sda 0, sdz 25, sdaa 26.
int sdIndex(const std::string &name)
{
	int v = -1;
	for (size_t i = 2; i < name.size(); ++i)
		v = (v + 1) * 26 + (name[i] - 'a');
	return v;
}

std::string pad(const std::string &s, size_t width)
{
	return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

// VPD page 0x89 (ATA Information) as libata serves it for an ATA disk: a
// 60-byte header, then the IDENTIFY DEVICE data, of which the identity
// strings (big-endian words) are filled in here.
std::string ataInformationPage(const Device &d)
{
	std::string page(60 + 512, '\0');
	page[1] = static_cast<char>(0x89);
	page[2] = 0x02;
	page[3] = 0x38;
	page.replace(8, 8, "linux   ");
	page.replace(16, 16, "libata          ");
	page[56] = static_cast<char>(0xEC);
	auto put = [&](int word, int words, const std::string &text) {
		std::string t = pad(text.substr(0, static_cast<std::size_t>(words) * 2), static_cast<std::size_t>(words) * 2);
		for (int i = 0; i < words * 2; i += 2) {
			page[60 + word * 2 + i] = t[i + 1];
			page[60 + word * 2 + i + 1] = t[i];
		}
	};
	put(10, 10, d.serial);
	put(23, 4, d.firmware);
	put(27, 20, d.model);
	return page;
}

// What an ATA disk shows as its SCSI revision: the last four characters of
// its firmware text, or the first four when those are blank.
std::string scsiRev(const Device &d)
{
	if (d.protocol != "ata")
		return d.firmware.substr(0, 4);
	std::string fw = pad(d.firmware, 8).substr(0, 8);
	std::string tail = fw.substr(4, 4);
	return tail == "    " ? fw.substr(0, 4) : tail;
}

} // namespace

std::string Sysfs::ataHost(const std::string &controller, int ata, int hostNo, int portNo,
			   const std::string &procName, const std::string &transName, const KeyValues *pmInfo)
{
	std::string ataName = "ata" + std::to_string(ata);
	std::string ataDir = controller + "/" + ataName;
	out_.file(ataDir + "/ata_port/" + ataName + "/port_no", std::to_string(portNo) + "\n");
	out_.link("/sys/class/ata_port/" + ataName, ataDir + "/ata_port/" + ataName);
	std::string host = "host" + std::to_string(hostNo);
	std::string hostDir = ataDir + "/" + host;
	std::string sh = hostDir + "/scsi_host/" + host;
	out_.file(sh + "/proc_name", procName + "\n");
	if (!transName.empty())
		hostNames(sh, transName, pmInfo);
	out_.link("/sys/class/scsi_host/" + host, sh);
	return hostDir;
}

void Sysfs::hostNames(const std::string &sh, const std::string &transName, const KeyValues *pmInfo)
{
	out_.file(sh + "/vexo_diskname_trans", transName + "\n");
	out_.file(sh + "/vexo_pm_info", pmInfo ? quoted(*pmInfo) : "vexo_device_list=\"\"\n");
	if (!pmInfo)
		return;
	// The unit's command files: the GPIO word (its input lines before any
	// command) and, on the I2C-managed family, the I2C text protocol.
	out_.file(sh + "/vexo_pm_gpio", "0x00000000\n");
	for (const auto &[k, v] : *pmInfo)
		if (k == "deviceid" && v.find("5755") != std::string::npos)
			out_.file(sh + "/vexo_pm_i2c", "");
}

std::string Sysfs::usbHost(int port, int hostNo, const std::string &procName)
{
	std::string p = "2-" + std::to_string(port);
	std::string host = "host" + std::to_string(hostNo);
	std::string hostDir = std::string(kPciRoot) + "/" + kUsbXhci + "/usb2/" + p + "/" + p + ":1.0/" + host;
	std::string sh = hostDir + "/scsi_host/" + host;
	out_.file(sh + "/proc_name", procName + "\n");
	out_.link("/sys/class/scsi_host/" + host, sh);
	return hostDir;
}

void Sysfs::scsiDisk(const std::string &hostDir, int hostNo, int channel, int sgNo, const Device &d)
{
	std::string addr = std::to_string(hostNo) + ":" + std::to_string(channel) + ":0";
	std::string sdev = hostDir + "/target" + addr + "/" + addr + ":0";
	if (!d.model.empty()) {
		// The kernel shows the 16-byte product field of INQUIRY, padded;
		// for an ATA disk that is the start of its model.
		out_.file(sdev + "/model", pad(d.model.substr(0, 16), 16) + "\n");
		out_.file(sdev + "/vendor", pad(d.vendor, 8) + "\n");
		if (d.protocol == "ata")
			out_.file(sdev + "/vpd_pg89", ataInformationPage(d));
		out_.file(sdev + "/rev", scsiRev(d) + "\n");
		out_.file(sdev + "/state", "running\n");
		out_.file(sdev + "/type", "0\n");
	}
	// The kernel's I/O accounting of the device, zero at attach; a test or
	// the demo raises them to play a failing disk.
	for (const char *c : {"iorequest_cnt", "iodone_cnt", "ioerr_cnt", "iotmo_cnt"})
		out_.file(sdev + "/" + c, "0x0\n");
	if (sgNo >= 0) {
		std::string sg = "sg" + std::to_string(sgNo);
		out_.file(sdev + "/scsi_generic/" + sg + "/dev", "21:" + std::to_string(sgNo) + "\n");
		out_.link("/sys/class/scsi_generic/" + sg, sdev + "/scsi_generic/" + sg);
	}
	blockDevice(sdev + "/block/" + d.name, sdev, d);
}

void Sysfs::nvmeDisk(const std::string &endpoint, const Device &d)
{
	unsigned n = 0;
	std::sscanf(d.name.c_str(), "nvme%u", &n);
	std::string ctrlName = "nvme" + std::to_string(n);
	std::string ctrl = endpoint + "/nvme/" + ctrlName;
	out_.file(ctrl + "/model", pad(d.model, 40) + "\n");
	out_.file(ctrl + "/serial", pad(d.serial, 20) + "\n");
	out_.file(ctrl + "/firmware_rev", pad(d.firmware, 8) + "\n");
	out_.file(ctrl + "/transport", "pcie\n");
	out_.file(ctrl + "/state", "live\n");
	out_.file(ctrl + "/address", endpoint.substr(endpoint.rfind('/') + 1) + "\n");
	out_.link(ctrl + "/device", endpoint);
	out_.link("/sys/class/nvme/" + ctrlName, ctrl);
	blockDevice(ctrl + "/" + d.name, ctrl, d); // NVMe namespaces sit right under their controller
}

void Sysfs::virtualDisk(const Device &d) { blockDevice("/sys/devices/virtual/block/" + d.name, "", d); }

void Sysfs::blockDevice(const std::string &blk, const std::string &deviceLink, const Device &d)
{
	auto [major, minor] = devNumber(d);
	uint64_t sectors = d.sizeBytes / 512;
	out_.file(blk + "/size", std::to_string(sectors) + "\n");
	out_.file(blk + "/dev", std::to_string(major) + ":" + std::to_string(minor) + "\n");
	out_.file(blk + "/ro", "0\n");
	out_.file(blk + "/removable", d.where == Where::Usb ? "1\n" : "0\n");
	out_.file(blk + "/queue/rotational", d.rotationRate == 1 ? "0\n" : "1\n");
	out_.file(blk + "/queue/logical_block_size", std::to_string(d.logicalBlockSize) + "\n");
	out_.file(blk + "/queue/hw_sector_size", std::to_string(d.logicalBlockSize) + "\n");
	if (!deviceLink.empty())
		out_.link(blk + "/device", deviceLink);
	out_.link("/sys/block/" + d.name, blk);
	// The kernel's index by device number, which lsblk and udev go by.
	out_.link("/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(minor), blk);
	partitionLine(major, minor, sectors / 2, d.name);
	bool pStyle = d.name.compare(0, 2, "sd") != 0;
	for (const auto &p : d.partitions) {
		std::string pname = d.name + (pStyle ? "p" : "") + std::to_string(p.number);
		int pminor = major == 259 ? nextExtMinor_++ : minor + p.number;
		std::string pd = blk + "/" + pname;
		out_.file(pd + "/partition", std::to_string(p.number) + "\n");
		out_.file(pd + "/start", std::to_string(p.startSector) + "\n");
		out_.file(pd + "/size", std::to_string(p.sizeBytes / 512) + "\n");
		out_.file(pd + "/dev", std::to_string(major) + ":" + std::to_string(pminor) + "\n");
		out_.link("/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(pminor), pd);
		partitionLine(major, pminor, p.sizeBytes / 1024, pname);
	}
}

// The sd driver's numbers: 16 majors of 16 disks each, and past 256 disks
// the same majors with the index's high bits in the extended minor (minor
// 256 and up: sdiw is 8:256). The shift by 12 belongs to the packed device
// number, not to the minor.
std::pair<int, int> Sysfs::devNumber(const Device &d)
{
	if (d.name.compare(0, 2, "sd") == 0) {
		int i = sdIndex(d.name);
		int group = (i & 0xf0) >> 4;
		int major = group == 0 ? 8 : group < 8 ? 64 + group : 128 + group - 8;
		return {major, ((i & 0xf) << 4) | (i & 0xfff00)};
	}
	return {259, nextExtMinor_++};
}

void Sysfs::partitionLine(int major, int minor, uint64_t kib, const std::string &name)
{
	char line[128];
	std::snprintf(line, sizeof line, "%4d  %7d %10llu %s\n", major, minor, (unsigned long long)kib, name.c_str());
	partitions_ += line;
}

} // namespace vexosim
