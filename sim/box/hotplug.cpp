#include "hotplug.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <json-c/json.h>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "description.h"
#include "sysfs.h"
#include "tree.h"

namespace fs = std::filesystem;

namespace vexosim {

namespace {

// Writes straight into a running box: a hot-plug changes what is there.
class BoxSink : public Sink {
public:
	explicit BoxSink(std::string root) : root_(std::move(root)) {}
	void dir(std::string_view path) override { fs::create_directories(host(path)); }
	void file(std::string_view path, std::string_view content) override
	{
		fs::create_directories(fs::path(host(path)).parent_path());
		std::ofstream(host(path), std::ios::trunc) << content;
	}
	void link(std::string_view path, std::string_view target) override
	{
		fs::create_directories(fs::path(host(path)).parent_path());
		std::error_code ec;
		fs::remove(host(path), ec);
		fs::create_symlink(relativeLink(path, target), host(path));
	}
	std::string host(std::string_view path) const { return root_ + std::string(path); }

private:
	std::string root_;
};

std::string readAll(const std::string &path)
{
	std::ifstream in(path);
	if (!in)
		throw std::runtime_error(path + ": cannot read");
	std::stringstream s;
	s << in.rdbuf();
	return s.str();
}

std::string text(json_object *o, const char *key)
{
	json_object *v = nullptr;
	return json_object_object_get_ex(o, key, &v) ? json_object_get_string(v) : "";
}

// The SCSI host of internal bay `bay`, an appliance path, and its number.
std::string bayHost(const std::string &root, int bay, int &hostNo)
{
	std::string ctrl = std::string(kPciRoot) + "/" + kBayController;
	std::error_code ec;
	for (const auto &ata : fs::directory_iterator(root + ctrl, ec)) {
		std::string a = ata.path().filename();
		if (a.rfind("ata", 0) != 0 || !fs::exists(ata.path() / "ata_port" / a / "port_no"))
			continue;
		if (std::stoi(readAll(ata.path() / "ata_port" / a / "port_no")) != bay)
			continue;
		for (const auto &h : fs::directory_iterator(ata.path())) {
			std::string n = h.path().filename();
			if (n.rfind("host", 0) == 0) {
				hostNo = std::stoi(n.substr(4));
				return ctrl + "/" + a + "/" + n;
			}
		}
	}
	throw std::runtime_error("the box has no internal bay " + std::to_string(bay));
}

// /proc/partitions without the lines of a disk and its partitions.
void dropPartitions(const std::string &file, const std::string &name)
{
	std::istringstream in(readAll(file));
	std::string out;
	for (std::string line; std::getline(in, line);) {
		std::istringstream f(line);
		std::string major, minor, blocks, dev;
		f >> major >> minor >> blocks >> dev;
		bool mine = dev == name || (dev.rfind(name, 0) == 0 && dev.size() > name.size() &&
					    std::isdigit(static_cast<unsigned char>(dev[name.size()])));
		if (!mine)
			out += line + "\n";
	}
	std::ofstream(file, std::ios::trunc) << out;
}

std::string shelved(const std::string &root, const std::string &serial)
{
	if (serial.empty() || serial.find('/') != std::string::npos || serial[0] == '.')
		throw std::runtime_error("bad serial \"" + serial + "\"");
	return root + kShelf + "/" + serial + ".json";
}

} // namespace

std::string pullDisk(const std::string &root, int bay, std::string *serial)
{
	if (bay < 1 || bay > 26)
		throw std::runtime_error("no internal bay " + std::to_string(bay));
	std::string name = letterName(bay - 1), blk = root + "/sys/block/" + name;
	std::error_code ec;
	if (!fs::is_symlink(blk))
		throw std::runtime_error("internal bay " + std::to_string(bay) + " is empty");
	std::string node = readAll(root + "/dev/" + name);
	JsonRef o(json_tokener_parse(node.c_str()));
	std::string sn = o.get() ? text(o.get(), "serial") : "";
	std::string shelf = shelved(root, sn);
	fs::create_directories(fs::path(shelf).parent_path());
	std::ofstream(shelf, std::ios::trunc) << node;

	fs::path real = fs::canonical(blk);
	std::string dev = readAll(real / "dev");
	dev.erase(dev.find_last_not_of("\n") + 1);
	fs::path target = real.parent_path().parent_path().parent_path(); // .../target<h:c:t>
	fs::remove_all(target);
	fs::remove(root + "/sys/dev/block/" + dev, ec);
	fs::remove(blk, ec);
	fs::remove(root + "/dev/" + name, ec);
	fs::remove_all(root + "/run/vexostorage/disks/" + name, ec); // what was known of it went with it
	for (const auto &l : fs::directory_iterator(root + "/sys/class/scsi_generic", ec))
		if (!fs::exists(l.path()))
			fs::remove(l.path(), ec);
	dropPartitions(root + "/proc/partitions", name);
	if (serial)
		*serial = sn;
	return "/dev/" + name;
}

std::string plugDisk(const std::string &root, int bay, const std::string &serial)
{
	if (bay < 1 || bay > 26)
		throw std::runtime_error("no internal bay " + std::to_string(bay));
	std::string name = letterName(bay - 1);
	std::error_code ec;
	if (fs::is_symlink(root + "/sys/block/" + name, ec))
		throw std::runtime_error("internal bay " + std::to_string(bay) + " is taken");
	std::string shelf = shelved(root, serial);
	if (!fs::exists(shelf))
		throw std::runtime_error("no pulled disk with serial " + serial);
	std::string node = readAll(shelf);
	JsonRef o(json_tokener_parse(node.c_str()));
	if (!o.get())
		throw std::runtime_error(shelf + ": not JSON");
	int hostNo = 0;
	std::string hostDir = bayHost(root, bay, hostNo);

	Device d;
	d.name = name;
	d.where = Where::Bay;
	d.bay = bay;
	d.model = text(o.get(), "model");
	d.vendor = text(o.get(), "vendor");
	d.serial = serial;
	d.firmware = text(o.get(), "firmware");
	d.protocol = text(o.get(), "protocol");
	json_object *v = nullptr;
	if (json_object_object_get_ex(o.get(), "size_bytes", &v))
		d.sizeBytes = json_object_get_uint64(v);
	if (json_object_object_get_ex(o.get(), "logical_block_size", &v))
		d.logicalBlockSize = json_object_get_int(v);
	if (json_object_object_get_ex(o.get(), "rotation_rate", &v))
		d.rotationRate = json_object_get_int(v);

	BoxSink sink(root);
	Sysfs sysfs(sink);
	sysfs.scsiDisk(hostDir, hostNo, 0, -1, d);
	sink.file("/dev/" + name, node);
	// The new disk's lines, without the table's heading.
	std::string lines = sysfs.partitions();
	lines.erase(0, lines.find("\n\n") + 2);
	std::ofstream(root + "/proc/partitions", std::ios::app) << lines;
	// The storage daemon gives every disk that appears its value-cache folder.
	fs::create_directories(root + "/run/vexostorage/disks/" + name);
	fs::remove(shelf);
	return "/dev/" + name;
}

unsigned long long raiseCounter(const std::string &root, const std::string &name, const std::string &counter,
				unsigned long long n)
{
	if (counter != "ioerr_cnt" && counter != "iotmo_cnt" && counter != "iodone_cnt" && counter != "iorequest_cnt")
		throw std::runtime_error("no such counter " + counter);
	if (name.empty() || name.find('/') != std::string::npos || name[0] == '.')
		throw std::runtime_error("bad disk name " + name);
	std::string file = root + "/sys/block/" + name + "/device/" + counter;
	unsigned long long v = fs::exists(file) ? std::stoull(readAll(file), nullptr, 0) : 0;
	v += n;
	char out[32];
	std::snprintf(out, sizeof(out), "0x%llx\n", v);
	std::ofstream f(file, std::ios::trunc);
	if (!(f << out))
		throw std::runtime_error(file + ": cannot write");
	return v;
}

} // namespace vexosim
