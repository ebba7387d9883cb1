#include "support/disk_layout.h"

#include <cstdio>

namespace vexo::test {

int DiskLayout::sata(const std::string &name, int ataPort, const std::string &pci, unsigned long long sectors) const
{
	int host = ataPort - 1;
	std::string h = std::to_string(host);
	std::string ata = "devices/pci0000:00/" + pci + "/ata" + std::to_string(ataPort);
	std::string dev = ata + "/host" + h + "/target" + h + ":0:0/" + h + ":0:0:0";
	std::string block = dev + "/block/" + name;
	root_.write("/sys/" + ata + "/ata_port/ata" + std::to_string(ataPort) + "/port_no", std::to_string(ataPort) + "\n");
	root_.write("/sys/" + ata + "/host" + h + "/scsi_host/host" + h + "/proc_name", "ahci\n");
	root_.write("/sys/" + block + "/size", std::to_string(sectors) + "\n");
	root_.write("/sys/" + block + "/queue/logical_block_size", "512\n");
	// The block directory's device link leads back to the SCSI device.
	root_.symlink("../../../" + h + ":0:0:0", "/sys/" + block + "/device");
	root_.mkdirs("/sys/block");
	root_.symlink("../" + block, "/sys/block/" + name);
	root_.mkdirs("/sys/class/scsi_host");
	if (!root_.exists("/sys/class/scsi_host/host" + h))
		root_.symlink("../../" + ata + "/host" + h + "/scsi_host/host" + h, "/sys/class/scsi_host/host" + h);
	root_.write("/dev/" + name, "");
	return host;
}

void DiskLayout::nvme(const std::string &name, const std::string &pci) const
{
	int ctrl = 0, ns = 0;
	std::sscanf(name.c_str(), "nvme%dn%d", &ctrl, &ns);
	std::string block = "devices/pci0000:00/" + pci + "/nvme/nvme" + std::to_string(ctrl) + "/" + name;
	root_.write("/sys/" + block + "/size", "1000215216\n");
	root_.mkdirs("/sys/block");
	root_.symlink("../" + block, "/sys/block/" + name);
	root_.write("/dev/" + name, "");
}

void DiskLayout::plain(const std::string &name) const
{
	std::string block = "devices/virtual/block/" + name;
	root_.write("/sys/" + block + "/size", "2097152\n");
	root_.mkdirs("/sys/block");
	root_.symlink("../" + block, "/sys/block/" + name);
	root_.write("/dev/" + name, "");
}

void DiskLayout::unit(int host, const std::string &base, const std::vector<std::string> &devices,
		      const std::string &unique, const std::string &power) const
{
	std::string h = "/sys/class/scsi_host/host" + std::to_string(host);
	std::string list;
	for (const auto &d : devices)
		list += (list.empty() ? "" : " ") + d;
	std::string info = "deviceid=\"3726\"\nEMID=\"0\"\nUnique=\"" + unique + "\"\nvexo_device_list=\"" + list + "\"\n";
	if (!power.empty())
		info += "power=\"" + power + "\"\n";
	root_.write(h + "/vexo_pm_info", info);
	root_.write(h + "/vexo_diskname_trans", base + "\n");
	for (const auto &d : devices)
		root_.write(d, "");
}

void DiskLayout::portMaps(const std::string &usb, const std::string &esata, const std::string &internal,
			  const std::string &cache, const std::vector<std::pair<std::string, std::string>> &extra) const
{
	std::vector<std::pair<std::string, std::string>> kv;
	if (!usb.empty())
		kv.emplace_back("usbportcfg", usb);
	if (!esata.empty())
		kv.emplace_back("esataportcfg", esata);
	if (!internal.empty())
		kv.emplace_back("internalportcfg", internal);
	if (!cache.empty())
		kv.emplace_back("cacheportcfg", cache);
	kv.insert(kv.end(), extra.begin(), extra.end());
	root_.conf("/etc.defaults/vexoinfo.conf", kv);
}

void DiskLayout::platform(const std::string &json) const { root_.write("/etc.defaults/vexoplatform.json", json); }

} // namespace vexo::test
