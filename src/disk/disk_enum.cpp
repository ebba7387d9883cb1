// VEXODiskEnum and VEXODiskGetInfo: the older lookup of whole disks by
// encoded device number, over /proc/partitions.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <string>
#include <vector>
#include <cstdio>

#include <vexohw/disk_enum.h>

#include "disk/disk_enum_pass.h"
#include "frame/device.h"
#include "frame/err.h"

namespace {

struct SzList {
	PVLIBSZLIST p;
	explicit SzList(int capacity) : p(VLIBCSzListAlloc(capacity)) {}
	~SzList() { VLIBCSzListFree(p); }
	SzList(const SzList &) = delete;
	SzList &operator=(const SzList &) = delete;
};

// The kernel's packing of a device number, cut to 32 bits.
uint32_t encode(unsigned long long major, unsigned long long minor)
{
	return static_cast<uint32_t>((minor & 0xFF) | ((major << 8) & 0xFFF00) | ((minor << 12) & 0xFFFFFF00000ULL));
}

// Whole disks of the old IDE-style drivers (two per major).
bool firstPass(long major, long minor)
{
	static constexpr long kMajors[] = {3, 22, 33, 34, 56, 57, 88, 89, 90, 91};
	for (long m : kMajors)
		if (m == major)
			return minor == 0 || minor == 64;
	return false;
}

// Whole sd disks of the first eight majors (16 minors per disk).
bool secondPass(long major, long minor)
{
	return (major == 8 || (major >= 65 && major <= 71)) && minor % 16 == 0;
}

struct Line {
	long major = -1, minor = -1;
	std::string name; // empty on a line of fewer than four fields
	bool whole() const { return firstPass(major, minor) || secondPass(major, minor); }
	uint32_t number() const
	{
		return encode(static_cast<unsigned long long>(major), static_cast<unsigned long long>(minor));
	}
};

// The lines of /proc/partitions with at least two fields, read once for a
// whole pass: an enumeration and every lookup in it see the same table.
int readPartitions(std::vector<Line> &out)
{
	SzList lines(64); // both grow as needed
	if (!lines.p) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	if (VLIBCFileReadLines("/proc/partitions", &lines.p) < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	SzList f(8);
	if (!f.p) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	for (int i = 0; i < lines.p->nItem; ++i) {
		VLIBCSzListClear(f.p);
		VLIBCSzListSplit(&f.p, VLIBCSzListGet(lines.p, i), " \t");
		if (f.p->nItem < 2)
			continue;
		Line l;
		char *end = nullptr;
		l.major = std::strtol(VLIBCSzListGet(f.p, 0), &end, 10);
		if (*end)
			l.major = -1;
		l.minor = std::strtol(VLIBCSzListGet(f.p, 1), &end, 10);
		if (*end)
			l.minor = -1;
		if (f.p->nItem >= 4)
			l.name = VLIBCSzListGet(f.p, 3);
		out.push_back(std::move(l));
	}
	return lines.p->nItem;
}

// The whole disks' numbers: the IDE-style disks first, then the sd disks,
// each in the table's order.
std::vector<uint32_t> wholeDisks(const std::vector<Line> &lines)
{
	std::vector<uint32_t> out;
	for (auto pass : {firstPass, secondPass})
		for (const auto &l : lines)
			if (pass(l.major, l.minor))
				out.push_back(l.number());
	return out;
}

// The named line of a whole disk with that number, or null.
const Line *lookup(const std::vector<Line> &lines, uint32_t devNumber)
{
	for (const auto &l : lines)
		if (!l.name.empty() && l.whole() && l.number() == devNumber)
			return &l;
	return nullptr;
}

// The brief record of one disk of the table: its size asked of the device.
int briefInfo(const Line &hit, DiskBriefInfo **info)
{
	std::string dev = "/dev/" + hit.name;
	vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY | O_CLOEXEC);
	if (!d) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	uint64_t bytes = 0;
	if (d.ioctl(BLKGETSIZE64, &bytes) != 0) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	auto *rec = static_cast<DiskBriefInfo *>(std::calloc(1, sizeof(DiskBriefInfo)));
	if (!rec) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	rec->devNumber = hit.number();
	std::snprintf(rec->name, sizeof(rec->name), "%s", hit.name.c_str());
	rec->type = 7;
	rec->capacityMiB = bytes >> 20;
	*info = rec;
	return 0;
}

} // namespace

namespace vexo::disk {

bool wholeDiskBytes(const char *name, unsigned long long *bytes)
{
	std::vector<Line> lines;
	if (readPartitions(lines) < 0)
		return false;
	for (uint32_t n : wholeDisks(lines)) {
		const Line *l = lookup(lines, n);
		if (!l || l->name != name)
			continue;
		DiskBriefInfo *b = nullptr;
		if (briefInfo(*l, &b) != 0)
			continue;
		*bytes = static_cast<unsigned long long>(b->capacityMiB) << 20;
		std::free(b);
		return true;
	}
	VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
	return false;
}

} // namespace vexo::disk

extern "C" {

VEXO_API int VEXODiskEnum(int type, unsigned int **numbers)
try {
	if (type != 1 || !numbers) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<Line> lines;
	if (readPartitions(lines) < 0)
		return -1;
	std::vector<uint32_t> whole = wholeDisks(lines);
	if (whole.empty())
		return 0;
	auto *out = static_cast<unsigned int *>(std::malloc(sizeof(unsigned int) * whole.size()));
	if (!out) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	std::copy(whole.begin(), whole.end(), out);
	*numbers = out;
	return static_cast<int>(whole.size());
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetInfo(int type, unsigned int devNumber, DiskBriefInfo **info)
try {
	if (type != 1 || !info) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<Line> lines;
	if (readPartitions(lines) < 0)
		return -1;
	const Line *hit = lookup(lines, devNumber);
	if (!hit) {
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	return briefInfo(*hit, info);
} VEXO_C_CATCH(-1)

} // extern "C"
