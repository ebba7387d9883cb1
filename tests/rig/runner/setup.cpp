// Finding the guest's disks and describing the appliance around them. The
// kernel names disks in the order their drivers probe, which changes from
// boot to boot: a disk is known by its bus (sysfs path) and its serial.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "rig.h"

namespace rig {

namespace {

std::string kv(const std::string &line, const std::string &key)
{
	std::istringstream in(line);
	for (std::string f; std::getline(in, f, '\t');)
		if (f.compare(0, key.size() + 1, key + "=") == 0)
			return f.substr(key.size() + 1);
	return {};
}

// "/sys/devices/.../host2/target2:0:0/..." -> the host's proc_name.
std::string hostDriver(const std::string &sysPath)
{
	size_t pos = sysPath.find("/host");
	if (pos == std::string::npos)
		return {};
	size_t end = sysPath.find('/', pos + 1);
	std::string host = sysPath.substr(pos + 1, end - pos - 1);
	return trim(readFile(sysPath.substr(0, end) + "/scsi_host/" + host + "/proc_name"));
}

std::string busOf(const std::string &name, const std::string &sysPath)
{
	if (name.compare(0, 4, "nvme") == 0)
		return "nvme";
	if (sysPath.find("/usb") != std::string::npos)
		return "usb";
	if (sysPath.find("/ata") != std::string::npos)
		return "ata";
	if (sysPath.find("/virtio") != std::string::npos)
		return "virtio";
	if (hostDriver(sysPath) == "sym53c8xx")
		return "lsi";
	return "other";
}

// The unit serial number page as the kernel read it at probe time.
std::string sysSerial(const std::string &name)
{
	if (name.compare(0, 4, "nvme") == 0)
		return trim(readFile("/sys/block/" + name + "/device/serial"));
	std::string page = readFile("/sys/block/" + name + "/device/vpd_pg80");
	if (page.size() < 4)
		return {};
	size_t len = static_cast<unsigned char>(page[3]);
	return trim(page.substr(4, len));
}

bool writeText(const std::string &path, const std::string &text, std::string &err)
{
	std::string dir = path.substr(0, path.rfind('/'));
	mkdir(dir.c_str(), 0755);
	std::ofstream out(path, std::ios::trunc);
	out << text;
	out.close();
	if (!out) {
		err = "cannot write " + path;
		return false;
	}
	return true;
}

} // namespace

Disk *Guest::role(const std::string &r)
{
	for (auto &d : disks)
		if (d.role == r)
			return &d;
	return nullptr;
}

std::vector<Disk *> Guest::present()
{
	std::vector<Disk *> out;
	for (auto &d : disks)
		if (!d.name.empty())
			out.push_back(&d);
	return out;
}

std::vector<Disk *> Guest::atBoot(std::initializer_list<std::string> buses)
{
	std::vector<Disk *> out;
	for (auto &d : disks)
		if (d.when == "boot" && std::find(buses.begin(), buses.end(), d.bus) != buses.end())
			out.push_back(&d);
	return out;
}

bool loadGuest(const std::string &file, const std::string &name, Guest &g, std::string &err)
{
	std::ifstream in(file);
	if (!in) {
		err = "no disk list " + file;
		return false;
	}
	g.name = name;
	for (std::string line; std::getline(in, line);) {
		if (line.empty() || line[0] == '#')
			continue;
		Disk d;
		for (auto [key, field] : {std::pair{"role", &Disk::role}, {"bus", &Disk::bus}, {"port", &Disk::port},
					  {"when", &Disk::when}, {"model", &Disk::model}, {"serial", &Disk::serial},
					  {"firmware", &Disk::firmware}, {"vendor", &Disk::vendor}, {"product", &Disk::product}})
			d.*field = kv(line, key);
		d.rotation = static_cast<unsigned>(std::strtoul(kv(line, "rotation").c_str(), nullptr, 0));
		std::string pbs = kv(line, "physical_block");
		if (!pbs.empty())
			d.physicalBlock = static_cast<unsigned>(std::strtoul(pbs.c_str(), nullptr, 0));
		d.sizeBytes = std::strtoull(kv(line, "size").c_str(), nullptr, 0);
		d.critWarning = static_cast<unsigned>(std::strtoul(kv(line, "crit_warning").c_str(), nullptr, 0));
		if (d.role.empty() || d.bus.empty() || d.serial.empty()) {
			err = "bad disk line: " + line;
			return false;
		}
		g.disks.push_back(d);
	}
	return !g.disks.empty() || (err = "no disks in " + file, false);
}

void discover(Guest &g)
{
	for (auto &d : g.disks) {
		d.name.clear();
		d.sysPath.clear();
	}
	DIR *dir = opendir("/sys/block");
	if (!dir)
		return;
	std::vector<std::string> names;
	while (dirent *e = readdir(dir)) {
		std::string n = e->d_name;
		if (n.compare(0, 2, "sd") == 0 || n.compare(0, 4, "nvme") == 0)
			names.push_back(n);
	}
	closedir(dir);
	for (const auto &n : names) {
		char real[PATH_MAX];
		if (!realpath(("/sys/block/" + n).c_str(), real))
			continue;
		std::string bus = busOf(n, real);
		std::string serial = sysSerial(n);
		std::string model = trim(readFile("/sys/block/" + n + "/device/model"));
		Disk *pick = nullptr;
		int candidates = 0;
		for (auto &d : g.disks) {
			if (d.bus != bus || !d.name.empty())
				continue;
			++candidates;
			if (!serial.empty() && serial == d.serial)
				pick = &d;
			else if (serial.empty() && !model.empty() &&
				 (d.model.compare(0, model.size(), model) == 0 || d.product == model))
				pick = pick ? pick : &d;
		}
		// A bridge that hides the serial page: the only disk of its bus.
		if (!pick && serial.empty() && candidates == 1)
			for (auto &d : g.disks)
				if (d.bus == bus && d.name.empty())
					pick = &d;
		if (pick) {
			pick->name = n;
			pick->sysPath = real;
		}
	}
}

bool writeAppliance(Guest &g, std::string &err)
{
	unsigned long long internal = 0, esata = 0, usb = 0, cache = 0;
	int bays = 0;
	std::string slots;
	int location = 0;
	for (auto *d : g.present()) {
		if (d->bus == "nvme") {
			// The controller's PCI function is the component before "/nvme/".
			size_t at = d->sysPath.find("/nvme/");
			size_t from = d->sysPath.rfind('/', at - 1);
			std::string pci = d->sysPath.substr(from + 1, at - from - 1);
			if (!slots.empty())
				slots += ",";
			slots += fmt("{\"pci\":\"%s\",\"slot\":0,\"location\":%d,\"type\":\"%s\"}", pci.c_str(),
				     ++location, d->port.c_str());
			continue;
		}
		if (d->name.size() != 3)
			continue; // two-letter names are not bays of this box
		const std::map<std::string, unsigned long long *> maps = {
			{"internal", &internal}, {"esata", &esata}, {"usb", &usb}, {"cache", &cache}};
		if (auto it = maps.find(d->port); it != maps.end())
			*it->second |= 1ULL << (d->name[2] - 'a');
		bays += d->port == "internal";
	}
	std::string conf = fmt("upnpmodelname=\"VQRIG\"\nunique=\"vexo_rig_%s\"\nmaxdisks=\"%d\"\nsupport_nvme=\"yes\"\n",
			       g.name.c_str(), bays);
	conf += fmt("internalportcfg=\"0x%llx\"\nesataportcfg=\"0x%llx\"\nusbportcfg=\"0x%llx\"\ncacheportcfg=\"0x%llx\"\n",
		    internal, esata, usb, cache);
	std::string platform = "{\"model\":\"VQRIG\",\"nvme_slots\":[" + slots + "]}\n";
	std::string version = "majorversion=\"7\"\nminorversion=\"2\"\nbuildnumber=\"64570\"\nbase=\"64570\"\nnano=\"1\"\n";
	// The per-disk cache folders the appliance keeps for every disk.
	for (const char *d : {"/run/vexostorage", "/run/vexostorage/disks"})
		mkdir(d, 0755);
	for (auto *d : g.present())
		mkdir(("/run/vexostorage/disks/" + d->name).c_str(), 0755);
	mkdir("/etc.defaults", 0755);
	if (!writeText("/etc.defaults/vexoinfo.conf", conf, err) ||
	    !writeText("/etc.defaults/vexoplatform.json", platform, err) ||
	    !writeText("/etc.defaults/VERSION", version, err))
		return false;

	// The same box as the virtual edition, under a second root that shares
	// the kernel's /sys, /dev and /proc: there every non-NVMe disk is SCSI.
	std::string v = kVvosRoot;
	mkdir(v.c_str(), 0755);
	for (const char *d : {"/tmp", "/run", "/var", "/etc"})
		mkdir((v + d).c_str(), 0755);
	for (const char *d : {"sys", "dev", "proc"})
		if (symlink((std::string("/") + d).c_str(), (v + "/" + d).c_str()) != 0 && errno != EEXIST) {
			err = "cannot link " + v + "/" + d;
			return false;
		}
	return writeText(v + "/etc.defaults/vexoinfo.conf", conf + "vvos=\"yes\"\n", err) &&
	       writeText(v + "/etc.defaults/vexoplatform.json", platform, err) &&
	       writeText(v + "/etc.defaults/VERSION", version, err);
}

} // namespace rig
