#include "support/disk_layout.h"

#include "box/sysfs.h"
#include "box/tree.h"

namespace vexo::test {

namespace {

// The simulator's layout code writing into a test's sysroot; a later write
// replaces an earlier one, so a test can lay out a disk again.
class SysrootSink : public vexosim::Sink {
public:
	explicit SysrootSink(const Sysroot &root) : root_(root) {}
	void dir(std::string_view path) override { root_.mkdirs(path); }
	void file(std::string_view path, std::string_view content) override { root_.write(path, content); }
	void link(std::string_view path, std::string_view target) override
	{
		root_.remove(path);
		root_.symlink(vexosim::relativeLink(path, target), path);
	}

private:
	const Sysroot &root_;
};

vexosim::Device device(const std::string &name, unsigned long long sectors)
{
	vexosim::Device d;
	d.name = name;
	d.sizeBytes = sectors * 512;
	return d;
}

} // namespace

int DiskLayout::sata(const std::string &name, int ataPort, const std::string &pci, unsigned long long sectors,
		     const std::string &driver) const
{
	SysrootSink out(root_);
	vexosim::Sysfs sysfs(out);
	int host = ataPort - 1;
	std::string hostDir = sysfs.ataHost(std::string(vexosim::kPciRoot) + "/" + pci, ataPort, host, ataPort, driver);
	sysfs.scsiDisk(hostDir, host, 0, -1, device(name, sectors)); // no generic node: tests add one
	root_.write("/dev/" + name, "");
	return host;
}

void DiskLayout::nvme(const std::string &name, const std::string &pci) const
{
	SysrootSink out(root_);
	vexosim::Sysfs(out).nvmeDisk(std::string(vexosim::kPciRoot) + "/" + pci, device(name, 1000215216ULL));
	root_.write("/dev/" + name, "");
}

void DiskLayout::plain(const std::string &name) const
{
	SysrootSink out(root_);
	vexosim::Sysfs(out).virtualDisk(device(name, 2097152ULL));
	root_.write("/dev/" + name, "");
}

void DiskLayout::unit(int host, const std::string &base, const std::vector<std::string> &devices,
		      const std::string &unique, const std::string &power) const
{
	std::string list;
	for (const auto &d : devices)
		list += (list.empty() ? "" : " ") + d;
	vexosim::KeyValues info = {{"deviceid", "3726"}, {"EMID", "0"}, {"Unique", unique}, {"vexo_device_list", list}};
	if (!power.empty())
		info.emplace_back("power", power);
	SysrootSink out(root_);
	vexosim::Sysfs(out).hostNames("/sys/class/scsi_host/host" + std::to_string(host), base, &info);
	for (const auto &d : devices)
		root_.write(d, "");
}

void DiskLayout::portMaps(const std::string &usb, const std::string &esata, const std::string &internal,
			  const std::string &cache, const std::vector<std::pair<std::string, std::string>> &extra) const
{
	std::vector<std::pair<std::string, std::string>> kv;
	for (const auto &[key, mask] : {std::pair{"usbportcfg", &usb}, {"esataportcfg", &esata},
					{"internalportcfg", &internal}, {"cacheportcfg", &cache}})
		if (!mask->empty())
			kv.emplace_back(key, *mask);
	kv.insert(kv.end(), extra.begin(), extra.end());
	root_.conf("/etc.defaults/vexoinfo.conf", kv);
}

void DiskLayout::platform(const std::string &json) const { root_.write("/etc.defaults/vexoplatform.json", json); }

} // namespace vexo::test
