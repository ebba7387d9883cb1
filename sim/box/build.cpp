#include "build.h"
#include "compat_files.h"
#include "fan_files.h"
#include "led_files.h"

#include "sysfs.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <json-c/json.h>
#include <map>
#include <unistd.h>
#include <vector>

#include "../tools/real_tools.h"

namespace vexosim {

namespace {

// On-board controllers of the simulated main board.
const char *kBayAhci = kBayController;
const char *kEsataAhci = "0000:00:18.0";
const char *kSysAhci = "0000:00:12.0";

std::string quoted(const KeyValues &kv)
{
	std::string out;
	for (const auto &[k, v] : kv)
		out += k + "=\"" + v + "\"\n";
	return out;
}

class Builder {
public:
	Builder(const Box &box, Tree &tree) : box_(box), tree_(tree), sysfs_(tree) {}

	void run()
	{
		configuration();
		bays();
		esataPorts();
		systemDevices();
		pciSlots();
		usbDevices();
		tree_.file("/proc/partitions", sysfs_.partitions());
		tree_.file("/etc.defaults/vexoplatform.json", platform());
		for (const auto &d : box_.devices) {
			tree_.file("/dev/" + d.name, driveNode(d));
			tree_.dir("/run/vexostorage/disks/" + d.name);
		}
		for (const char *d : {"/tmp", "/var/log", "/var/lib", "/var/run", "/run/vexostorage", "/run/vexosdk/lock", "/run/lock"})
			tree_.dir(d);
		tools();
	}

private:
	// The programs the library runs, by the paths it runs them by: one
	// program, built beside vexosim and copied into the root with the
	// interposer so that the root stays whole by itself. It answers for the
	// appliance's own tools and hands the drive tools over to the
	// distribution's programs, which are linked only when installed. Without
	// it (a vexosim copied out of its build) the root simply has no tools.
	void tools()
	{
		std::string bin = besideSelf("vexosim-tools");
		std::string interposer = besideSelf(std::string("../sim/interpose/") + tools::kInterposer);
		if (bin.empty() || ::access(bin.c_str(), X_OK) != 0 || interposer.empty())
			return;
		const char *program = "/usr/vexo/libexec/vexosim-tools";
		tree_.program(program, bin);
		tree_.program(std::string("/usr/vexo/libexec/") + tools::kInterposer, interposer);
		for (const char *p : {"/usr/vexo/sbin/vexostorage", "/usr/vexo/sbin/dhm_tool", "/usr/vexo/bin/vexowebapi",
				      "/usr/bin/md5sum", "/usr/vexo/bin/vexo_smart_test",
				      "/usr/vexo/bin/vexo_vcemd_connector", "/usr/vexo/bin/vexo_drive_bundle"})
			tree_.link(p, program);
		for (const auto &t : tools::kRealTools)
			if (::access(t.program, X_OK) == 0)
				for (const char *p : t.paths)
					if (p)
						tree_.link(p, program);
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
		// The product's remaining-life thresholds in percent, unless the
		// description sets its own.
		for (const auto &d : KeyValues{{"remain_life_show_thr_value", "10"}, {"remain_life_mail_notify_thr_value", "3"}})
			if (std::none_of(info.begin(), info.end(), [&](const auto &kv) { return kv.first == d.first; }))
				info.push_back(d);
		tree_.file("/etc.defaults/vexoinfo.conf", quoted(info));
		tree_.file("/etc/vexoinfo.conf", "");
		tree_.file("/etc.defaults/VERSION", quoted(box_.version));
		compatFiles(box_, tree_);
		fanFiles(box_, tree_);
		ledFiles(box_, tree_);
		std::string ports = "[pci]\n";
		for (const auto &s : box_.slots)
			ports += "pci" + std::to_string(s.slot) + "=\"" + s.pciId + "\"\n";
		tree_.file("/etc.defaults/extensionPorts", ports);
		// The words the mail texts of a disk are made of, in the default
		// language.
		tree_.file("/usr/vexo/vexoman/webman/texts/enu/strings",
			   quoted({{"volume_disk_info", "Drive"},
				   {"volume_system_disk", "System device"},
				   {"dedicated_ssd_cache", "Cache device"},
				   // the status mail's
				   {"size_tb", "TB"}, {"size_gb", "GB"}, {"size_mb", "MB"}, {"size_kb", "KB"}, {"size_byte", "Bytes"},
				   {"disk_status_normal", "Normal"}, {"disk_status_warning", "Warning"},
				   {"disk_status_critical", "Critical"}, {"disk_status_failing", "Failing"},
				   {"disk_status_unknown", "Unknown"}, {"disk_smart_status_normal", "Healthy"},
				   {"disk_smart_status_failing", "Failing"}, {"disk_adv_status_not_test", "Not tested"},
				   {"disk_can_not_test", "Cannot be tested"}, {"disk_bad_sector_ct", "Bad sector count"},
				   {"disk_identify_failed_ct", "Identify failures"}, {"disk_retry_ct", "Reconnection count"},
				   {"disk_remain_life", "Estimated remaining life"}, {"smart_status", "SMART status"},
				   {"disk_ironwolf_health_status", "Advanced test"}, {"disk_wdda_title", "Drive analytics"},
				   {"disk_error_timeout_title", "Command timeouts"},
				   {"disk_error_reset_fail_title", "Reset failures"},
				   {"disk_error_unc_title", "Uncorrectable errors"}, {"ssd_bundle_useful_time", "Useful time left"},
				   {"colon", ":"}, {"ssd_bundle_replace_now", "Replace now"},
				   {"ssd_bundle_time_long", "More than ten years"}, {"ssd_bundle_time_week", "week"},
				   {"ssd_bundle_time_weeks", "weeks"}, {"ssd_bundle_time_month", "month"},
				   {"ssd_bundle_time_months", "months"}, {"ssd_bundle_time_year", "year"},
				   {"ssd_bundle_time_years", "years"}}));
	}

	// An ATA port with its SCSI host, as libata registers them under a
	// controller, numbered in the order the kernel finds them. Returns the
	// host directory.
	std::string ataHost(const std::string &controller, int portNo, const std::string &procName,
			    const std::string &transName, const KeyValues *pmInfo, int &hostNo)
	{
		hostNo = nextHost_++;
		return sysfs_.ataHost(controller, nextAta_++, hostNo, portNo, procName, transName, pmInfo);
	}

	void scsiDisk(const std::string &hostDir, int hostNo, int channel, const Device &d)
	{
		sysfs_.scsiDisk(hostDir, hostNo, channel, nextSg_++, d);
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
					sysfs_.nvmeDisk(ep, *d);
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

	void usbDevices()
	{
		for (const auto &d : box_.devices)
			if (d.where == Where::Usb) {
				int h = nextHost_++;
				scsiDisk(sysfs_.usbHost(d.port, h, d.driver), h, 0, d);
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
	Sysfs sysfs_;
	int nextAta_ = 1, nextHost_ = 0, nextSg_ = 0, nextBus_ = 1;
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
