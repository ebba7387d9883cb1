#include "build.h"

#include <climits>
#include <cstdio>
#include <json-c/json.h>
#include <map>
#include <unistd.h>
#include <vector>

namespace vexosim {

namespace {

const char *kPciRoot = "/sys/devices/pci0000:00";
// On-board controllers of the simulated main board.
const char *kBayAhci = "0000:00:17.0";
const char *kEsataAhci = "0000:00:18.0";
const char *kSysAhci = "0000:00:12.0";
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

class Builder {
public:
	Builder(const Box &box, Tree &tree) : box_(box), tree_(tree) {}

	void run()
	{
		configuration();
		bays();
		esataPorts();
		systemDevices();
		pciSlots();
		usbDevices();
		tree_.file("/proc/partitions", partitions_);
		tree_.file("/etc.defaults/vexoplatform.json", platform());
		for (const auto &d : box_.devices) {
			tree_.file("/dev/" + d.name, driveNode(d));
			tree_.dir("/run/vexostorage/disks/" + d.name);
		}
		for (const char *d : {"/tmp", "/var/log", "/var/lib", "/var/run", "/run/vexostorage", "/run/vexosdk/lock"})
			tree_.dir(d);
		tools();
	}

private:
	// The stand-ins for the programs the library runs, by the paths it runs
	// them by: one program, built beside vexosim and copied into the root so
	// that the root stays whole by itself. Without it (a vexosim copied out
	// of its build) the root simply has no tools.
	void tools()
	{
		std::string bin = toolsProgram();
		if (bin.empty())
			return;
		const char *program = "/usr/vexo/libexec/vexosim-tools";
		tree_.program(program, bin);
		for (const char *p : {"/usr/bin/smartctl", "/usr/vexo/bin/sg_raw", "/usr/vexo/bin/sg_sat_identify",
				      "/usr/vexo/sbin/sg_logs", "/usr/vexo/sbin/vexostorage", "/usr/vexo/sbin/dhm_tool",
				      "/usr/vexo/bin/vexo_vcemd_connector"})
			tree_.link(p, program);
	}

	static std::string toolsProgram()
	{
		std::string bin = besideSelf("vexosim-tools");
		return !bin.empty() && ::access(bin.c_str(), X_OK) == 0 ? bin : "";
	}

	const Device *find(Where w, int a, int b = 0) const
	{
		for (const auto &d : box_.devices) {
			if (d.where != w)
				continue;
			if ((w == Where::Bay && d.bay == a) || ((w == Where::Esata || w == Where::Usb) && d.port == a) ||
			    (w == Where::Unit && d.port == a && d.bay == b) ||
			    (w == Where::Pci && d.slot == a && d.position == b) || (w == Where::Sys && d.position == a))
				return &d;
		}
		return nullptr;
	}

	void configuration()
	{
		KeyValues info = {
			{"upnpmodelname", box_.model},
			{"unique", box_.unique},
			{"maxdisks", std::to_string(box_.internalBays)},
			{"internalportcfg", portMask(0, box_.internalBays)},
			{"esataportcfg", portMask(box_.esataLetter(1), box_.esataPorts)},
			{"usbportcfg", portMask(box_.usbLetter(1), box_.usbPorts)},
			{"cacheportcfg", portMask(box_.cacheLetter(1), box_.cacheSlots)},
		};
		info.insert(info.end(), box_.vexoinfo.begin(), box_.vexoinfo.end());
		tree_.file("/etc.defaults/vexoinfo.conf", quoted(info));
		tree_.file("/etc/vexoinfo.conf", "");
		tree_.file("/etc.defaults/VERSION", quoted(box_.version));
		std::string ports = "[pci]\n";
		for (const auto &s : box_.slots)
			ports += "pci" + std::to_string(s.slot) + "=\"" + s.pciId + "\"\n";
		tree_.file("/etc.defaults/extensionPorts", ports);
		// The words the mail texts of a disk are made of, in the default
		// language.
		tree_.file("/usr/vexo/vexoman/webman/texts/enu/strings",
			   quoted({{"volume_disk_info", "Drive"},
				   {"volume_system_disk", "System device"},
				   {"dedicated_ssd_cache", "Cache device"}}));
	}

	// An ATA port with its SCSI host, as libata registers them under a
	// controller. Returns the host directory.
	std::string ataHost(const std::string &controller, int portNo, const std::string &procName,
			    const std::string &transName, const KeyValues *pmInfo, int &hostNo)
	{
		int ata = nextAta_++;
		hostNo = nextHost_++;
		std::string ataName = "ata" + std::to_string(ata);
		std::string ataDir = controller + "/" + ataName;
		tree_.file(ataDir + "/ata_port/" + ataName + "/port_no", std::to_string(portNo) + "\n");
		tree_.link("/sys/class/ata_port/" + ataName, ataDir + "/ata_port/" + ataName);
		std::string host = "host" + std::to_string(hostNo);
		std::string hostDir = ataDir + "/" + host;
		std::string sh = hostDir + "/scsi_host/" + host;
		tree_.file(sh + "/proc_name", procName + "\n");
		tree_.file(sh + "/vexo_diskname_trans", transName + "\n");
		tree_.file(sh + "/vexo_pm_info", pmInfo ? quoted(*pmInfo) : "vexo_device_list=\"\"\n");
		tree_.link("/sys/class/scsi_host/" + host, sh);
		return hostDir;
	}

	std::string usbHost(int port, const std::string &procName, int &hostNo)
	{
		hostNo = nextHost_++;
		std::string p = "2-" + std::to_string(port);
		std::string host = "host" + std::to_string(hostNo);
		std::string hostDir = std::string(kPciRoot) + "/" + kUsbXhci + "/usb2/" + p + "/" + p + ":1.0/" + host;
		std::string sh = hostDir + "/scsi_host/" + host;
		tree_.file(sh + "/proc_name", procName + "\n");
		tree_.link("/sys/class/scsi_host/" + host, sh);
		return hostDir;
	}

	// A SCSI disk on a host: the device directory with its inquiry texts
	// and generic node, then the block device.
	void scsiDisk(const std::string &hostDir, int hostNo, int channel, const Device &d)
	{
		std::string addr = std::to_string(hostNo) + ":" + std::to_string(channel) + ":0";
		std::string sdev = hostDir + "/target" + addr + "/" + addr + ":0";
		// The kernel shows the 16-byte product field of INQUIRY, padded;
		// for an ATA disk that is the start of its model.
		tree_.file(sdev + "/model", pad(d.model.substr(0, 16), 16) + "\n");
		tree_.file(sdev + "/vendor", pad(d.vendor, 8) + "\n");
		tree_.file(sdev + "/rev", scsiRev(d) + "\n");
		tree_.file(sdev + "/state", "running\n");
		tree_.file(sdev + "/type", "0\n");
		std::string sg = "sg" + std::to_string(nextSg_);
		tree_.file(sdev + "/scsi_generic/" + sg + "/dev", "21:" + std::to_string(nextSg_) + "\n");
		tree_.link("/sys/class/scsi_generic/" + sg, sdev + "/scsi_generic/" + sg);
		++nextSg_;
		blockDevice(sdev + "/block/" + d.name, sdev, d);
	}

	void blockDevice(const std::string &blk, const std::string &deviceLink, const Device &d)
	{
		auto [major, minor] = devNumber(d);
		uint64_t sectors = d.sizeBytes / 512;
		tree_.file(blk + "/size", std::to_string(sectors) + "\n");
		tree_.file(blk + "/dev", std::to_string(major) + ":" + std::to_string(minor) + "\n");
		tree_.file(blk + "/ro", "0\n");
		tree_.file(blk + "/removable", d.where == Where::Usb ? "1\n" : "0\n");
		tree_.file(blk + "/queue/rotational", d.rotationRate == 1 ? "0\n" : "1\n");
		tree_.file(blk + "/queue/logical_block_size", std::to_string(d.logicalBlockSize) + "\n");
		tree_.file(blk + "/queue/hw_sector_size", std::to_string(d.logicalBlockSize) + "\n");
		tree_.link(blk + "/device", deviceLink);
		tree_.link("/sys/block/" + d.name, blk);
		// The kernel's index by device number, which lsblk and udev go by.
		tree_.link("/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(minor), blk);
		partitionLine(major, minor, sectors / 2, d.name);
		bool pStyle = d.name.compare(0, 2, "sd") != 0;
		for (const auto &p : d.partitions) {
			std::string pname = d.name + (pStyle ? "p" : "") + std::to_string(p.number);
			int pminor = major == 259 ? nextExtMinor_++ : minor + p.number;
			std::string pd = blk + "/" + pname;
			tree_.file(pd + "/partition", std::to_string(p.number) + "\n");
			tree_.file(pd + "/start", std::to_string(p.startSector) + "\n");
			tree_.file(pd + "/size", std::to_string(p.sizeBytes / 512) + "\n");
			tree_.file(pd + "/dev", std::to_string(major) + ":" + std::to_string(pminor) + "\n");
			tree_.link("/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(pminor), pd);
			partitionLine(major, pminor, p.sizeBytes / 1024, pname);
		}
	}

	// The sd driver's numbers: 16 majors of 16 disks each, and past 256
	// disks the same majors with the index's high bits in the extended minor
	// (minor 256 and up: sdiw is 8:256). The shift by 12 belongs to the
	// packed device number, not to the minor.
	std::pair<int, int> devNumber(const Device &d)
	{
		if (d.name.compare(0, 2, "sd") == 0) {
			int i = sdIndex(d.name);
			int group = (i & 0xf0) >> 4;
			int major = group == 0 ? 8 : group < 8 ? 64 + group : 128 + group - 8;
			return {major, ((i & 0xf) << 4) | (i & 0xfff00)};
		}
		return {259, nextExtMinor_++};
	}

	void partitionLine(int major, int minor, uint64_t kib, const std::string &name)
	{
		char line[128];
		std::snprintf(line, sizeof line, "%4d  %7d %10llu %s\n", major, minor, (unsigned long long)kib,
			      name.c_str());
		partitions_ += line;
	}

	void bays()
	{
		std::string ctrl = std::string(kPciRoot) + "/" + kBayAhci;
		for (int bay = 1; bay <= box_.internalBays; ++bay) {
			const Device *d = find(Where::Bay, bay);
			int h;
			std::string hostDir =
				ataHost(ctrl, bay, d ? d->driver : "ahci", letterName(bay - 1), nullptr, h);
			if (d)
				scsiDisk(hostDir, h, 0, *d);
		}
	}

	void esataPorts()
	{
		std::string ctrl = std::string(kPciRoot) + "/" + kEsataAhci;
		for (int port = 1; port <= box_.esataPorts; ++port) {
			int letter = box_.esataLetter(port);
			const Unit *u = box_.unitOn(port);
			const Device *direct = find(Where::Esata, port);
			std::string proc = direct ? direct->driver : "ahci";
			KeyValues info;
			if (u) {
				std::string list;
				// Every bay's node, in bay order, present or not: a reader
				// takes the place in this list as the bay.
				for (int bay = 1; bay <= u->bays; ++bay) {
					list += (list.empty() ? "" : " ") + std::string("/dev/") +
						unitDiskName(letter, bay);
					if (const Device *d = find(Where::Unit, port, bay))
						proc = d->driver;
				}
				info = {{"Unique", u->model}};
				info.insert(info.end(), u->pmInfo.begin(), u->pmInfo.end());
				info.emplace_back("vexo_device_list", list);
			}
			int h;
			std::string hostDir = ataHost(ctrl, port, proc, letterName(letter), u ? &info : nullptr, h);
			if (direct)
				scsiDisk(hostDir, h, 0, *direct);
			if (u)
				for (int bay = 1; bay <= u->bays; ++bay)
					if (const Device *d = find(Where::Unit, port, bay))
						scsiDisk(hostDir, h, bay - 1, *d); // one channel per link of the multiplier
		}
	}

	void systemDevices()
	{
		std::string ctrl = std::string(kPciRoot) + "/" + kSysAhci;
		for (const auto &d : box_.devices)
			if (d.where == Where::Sys) {
				int h;
				std::string hostDir = ataHost(ctrl, d.position, d.driver, d.name, nullptr, h);
				scsiDisk(hostDir, h, 0, d);
			}
	}

	std::string busAddr(int bus, int dev)
	{
		char b[32];
		std::snprintf(b, sizeof b, "0000:%02x:%02x.0", bus & 0xff, dev & 0xff);
		return b;
	}

	// An adapter card: a PCIe switch behind the slot's root port, with one
	// downstream port per NVMe socket and an AHCI function for SATA sockets.
	void pciSlots()
	{
		for (const auto &s : box_.slots) {
			std::string root = std::string(kPciRoot) + "/" + s.pciId;
			tree_.dir(root);
			std::string up = root + "/" + busAddr(nextBus_, 0);
			int down = ++nextBus_;
			++nextBus_;
			tree_.dir(up);
			std::string ahci;
			for (int pos = 1; pos <= s.sockets; ++pos) {
				nvmeSockets_.push_back({busAddr(down, pos - 1), s.slot, pos});
				const Device *d = find(Where::Pci, s.slot, pos);
				if (!d)
					continue;
				if (d->protocol == "nvme") {
					std::string ep = up + "/" + busAddr(down, pos - 1) + "/" + busAddr(nextBus_++, 0);
					nvmeDisk(ep, *d);
				} else {
					if (ahci.empty())
						ahci = up + "/" + busAddr(down, 31) + "/" + busAddr(nextBus_++, 0);
					int h;
					std::string hostDir = ataHost(ahci, pos, d->driver, d->name, nullptr, h);
					scsiDisk(hostDir, h, 0, *d);
				}
			}
		}
	}

	void nvmeDisk(const std::string &endpoint, const Device &d)
	{
		unsigned n = 0;
		std::sscanf(d.name.c_str(), "nvme%u", &n);
		std::string ctrlName = "nvme" + std::to_string(n);
		std::string ctrl = endpoint + "/nvme/" + ctrlName;
		tree_.file(ctrl + "/model", pad(d.model, 40) + "\n");
		tree_.file(ctrl + "/serial", pad(d.serial, 20) + "\n");
		tree_.file(ctrl + "/firmware_rev", pad(d.firmware, 8) + "\n");
		tree_.file(ctrl + "/transport", "pcie\n");
		tree_.file(ctrl + "/state", "live\n");
		tree_.file(ctrl + "/address", endpoint.substr(endpoint.rfind('/') + 1) + "\n");
		tree_.link(ctrl + "/device", endpoint);
		tree_.link("/sys/class/nvme/" + ctrlName, ctrl);
		blockDevice(ctrl + "/" + d.name, ctrl, d); // NVMe namespaces sit right under their controller
	}

	void usbDevices()
	{
		for (const auto &d : box_.devices)
			if (d.where == Where::Usb) {
				int h;
				std::string hostDir = usbHost(d.port, d.driver, h);
				scsiDisk(hostDir, h, 0, d);
			}
	}

	// The platform description: the hardware model, whether there is an
	// expansion port, where NVMe sockets and adapter cards sit and what each
	// card may carry.
	std::string platform() const
	{
		JsonRef o(json_object_new_object());
		json_object_object_add(o.get(), "model", json_object_new_string(box_.model.c_str()));
		json_object_object_add(o.get(), "ebox", json_object_new_boolean(box_.esataPorts > 0));
		json_object *nvme = json_object_new_array();
		for (const auto &sock : nvmeSockets_) {
			json_object *e = json_object_new_object();
			json_object_object_add(e, "pci", json_object_new_string(sock.pci.c_str()));
			json_object_object_add(e, "slot", json_object_new_int(sock.slot));
			json_object_object_add(e, "location", json_object_new_int(sock.location));
			json_object_object_add(e, "type", json_object_new_string("cache"));
			json_object_array_add(nvme, e);
		}
		json_object_object_add(o.get(), "nvme_slots", nvme);
		json_object *slots = json_object_new_array();
		json_object *cards = json_object_new_object();
		for (const auto &s : box_.slots) {
			json_object *e = json_object_new_object();
			json_object_object_add(e, "pci", json_object_new_string(s.pciId.c_str()));
			json_object_object_add(e, "slot", json_object_new_int(s.slot));
			json_object_object_add(e, "card", json_object_new_string(s.card.c_str()));
			json_object_array_add(slots, e);
			bool nvmeCard = false, sataCard = false;
			for (const auto &d : box_.devices)
				if (d.where == Where::Pci && d.slot == s.slot)
					(d.protocol == "nvme" ? nvmeCard : sataCard) = true;
			json_object *prev = nullptr;
			if (json_object_object_get_ex(cards, s.card.c_str(), &prev)) {
				nvmeCard |= json_object_get_boolean(json_object_object_get(prev, "sup_nvme"));
				sataCard |= json_object_get_boolean(json_object_object_get(prev, "sup_sata"));
			}
			// A card model carries what its name says, and whatever the
			// description puts on it.
			nvmeCard |= s.card == "M2C-D2" || s.card == "M2C-N4" || s.card == "M2C-X1" ||
				    s.card == "M2C-X2" || s.card == "M2C-U2";
			sataCard |= s.card == "M2C-S1" || s.card == "M2C-S2";
			json_object *c = json_object_new_object();
			json_object_object_add(c, "sup_nvme", json_object_new_boolean(nvmeCard));
			json_object_object_add(c, "sup_sata", json_object_new_boolean(sataCard));
			json_object_object_add(cards, s.card.c_str(), c);
		}
		json_object_object_add(o.get(), "adapter_slots", slots);
		json_object_object_add(o.get(), "adapter_cards", cards);
		return std::string(json_object_to_json_string_ext(o.get(), JSON_C_TO_STRING_PRETTY)) + "\n";
	}

	struct Socket {
		std::string pci;
		int slot, location;
	};
	std::vector<Socket> nvmeSockets_;
	const Box &box_;
	Tree &tree_;
	std::string partitions_ = "major minor  #blocks  name\n\n";
	int nextAta_ = 1, nextHost_ = 0, nextSg_ = 0, nextBus_ = 1, nextExtMinor_ = 0;
};

} // namespace

std::string besideSelf(const std::string &relative)
{
	char self[PATH_MAX];
	ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
	if (n <= 0)
		return "";
	self[n] = 0;
	std::string path(self);
	path.resize(path.rfind('/') + 1);
	path += relative;
	char real[PATH_MAX];
	return ::realpath(path.c_str(), real) ? real : "";
}

std::string portMask(int first, int count)
{
	unsigned long long m = 0;
	for (int i = 0; i < count; ++i)
		m |= 1ULL << (first + i);
	char b[32];
	std::snprintf(b, sizeof b, "0x%llx", m);
	return b;
}

std::string driveNode(const Device &d)
{
	JsonRef o(json_object_new_object());
	json_object_object_add(o.get(), "protocol", json_object_new_string(d.protocol.c_str()));
	json_object_object_add(o.get(), "model", json_object_new_string(d.model.c_str()));
	json_object_object_add(o.get(), "serial", json_object_new_string(d.serial.c_str()));
	json_object_object_add(o.get(), "firmware", json_object_new_string(d.firmware.c_str()));
	json_object_object_add(o.get(), "vendor", json_object_new_string(d.vendor.c_str()));
	json_object_object_add(o.get(), "size_bytes", json_object_new_uint64(d.sizeBytes));
	json_object_object_add(o.get(), "logical_block_size", json_object_new_int(d.logicalBlockSize));
	json_object_object_add(o.get(), "rotation_rate", json_object_new_int(d.rotationRate));
	if (d.drive) {
		json_object_object_foreach(d.drive->get(), k, v)
			json_object_object_add(o.get(), k, json_object_get(v));
	}
	return std::string(json_object_to_json_string_ext(o.get(), JSON_C_TO_STRING_PRETTY |
								     JSON_C_TO_STRING_NOSLASHESCAPE)) +
	       "\n";
}

void build(const Box &box, Tree &tree)
{
	Builder(box, tree).run();
}

} // namespace vexosim
