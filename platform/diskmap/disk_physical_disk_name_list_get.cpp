// The whole disks under a block device, from sysfs alone: partitions are
// directories of their disk (/sys/block/sda/sda3), and stacked devices
// list their members in slaves/.
#include <cctype>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexoplatform/disk_map.h>

#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

// md over dm over partitions is as deep as stacks go; a loop in a broken
// tree ends here.
constexpr int kMaxDepth = 8;

bool exists(const std::string &path)
{
	struct stat st;
	return vexo::sysroot::stat(path.c_str(), &st) == 0;
}

// "sda3" -> "sda", "nvme0n1p2" -> "nvme0n1", "mmcblk0p1" -> "mmcblk0".
std::string diskOfPartition(const std::string &name)
{
	std::string s = name;
	while (!s.empty() && std::isdigit(static_cast<unsigned char>(s.back())))
		s.pop_back();
	if (s.size() >= 2 && s.back() == 'p' && std::isdigit(static_cast<unsigned char>(s[s.size() - 2])))
		s.pop_back();
	return s;
}

bool collect(const std::string &name, int depth, std::vector<std::string> &out)
{
	if (depth > kMaxDepth || name.empty() || name.find('/') != std::string::npos)
		return false;
	std::string block = "/sys/block/" + name;
	if (!exists(block)) {
		std::string disk = diskOfPartition(name);
		if (disk.empty() || disk == name || !exists("/sys/block/" + disk + "/" + name))
			return false;
		return collect(disk, depth + 1, out);
	}
	std::vector<std::string> slaves;
	if (vexo::sysroot::glob((block + "/slaves/*").c_str(), slaves) == 0 && !slaves.empty()) {
		for (const auto &s : slaves)
			if (!collect(s.substr(s.rfind('/') + 1), depth + 1, out))
				return false;
		return true;
	}
	for (const auto &o : out)
		if (o == name)
			return true;
	out.push_back(name);
	return true;
}

} // namespace

extern "C" VEXOP_API int VEXODiskPhysicalDiskNameListGet(const char *path, PVLIBSZLIST *list)
try {
	if (!path || !list || !*list) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = std::strncmp(path, "/dev/", 5) == 0 ? path + 5 : path;
	std::vector<std::string> disks;
	if (!collect(name, 0, disks)) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	for (const auto &d : disks)
		if (VLIBCSzListPush(list, d.c_str()) < 0) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
	return static_cast<int>(disks.size());
} VEXO_C_CATCH(-1)
