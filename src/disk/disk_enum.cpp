// VEXODiskEnum and VEXODiskGetInfo: the older lookup of whole disks by
// encoded device number, over /proc/partitions.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <string>
#include <vector>
#include <cstdio>

#include <vexohw/disk_enum.h>

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
	std::string name;
};

// The lines of /proc/partitions with at least `fields` fields.
int readPartitions(std::vector<Line> &out, int fields)
{
	SzList lines(2048);
	if (!lines.p) {
		VEXO_ERR(VEXO_ERR_LIST_ALLOC);
		return -1;
	}
	if (VLIBCFileReadLines("/proc/partitions", &lines.p) < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	for (int i = 0; i < lines.p->nItem; ++i) {
		SzList f(512);
		if (!f.p) {
			VEXO_ERR(VEXO_ERR_LIST_ALLOC);
			return -1;
		}
		VLIBCSzListSplit(&f.p, VLIBCSzListGet(lines.p, i), " \t");
		if (f.p->nItem < fields)
			continue;
		Line l;
		char *end = nullptr;
		l.major = std::strtol(VLIBCSzListGet(f.p, 0), &end, 10);
		if (*end)
			l.major = -1;
		l.minor = std::strtol(VLIBCSzListGet(f.p, 1), &end, 10);
		if (*end)
			l.minor = -1;
		if (fields >= 4)
			l.name = VLIBCSzListGet(f.p, 3);
		out.push_back(std::move(l));
	}
	return lines.p->nItem;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskEnum(int type, unsigned int **numbers)
try {
	if (type != 1 || !numbers) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<Line> lines;
	int nLines = readPartitions(lines, 2);
	if (nLines < 0)
		return -1;
	auto *out = static_cast<unsigned int *>(std::malloc(sizeof(unsigned int) * (nLines > 0 ? nLines : 1)));
	if (!out) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	int n = 0;
	for (auto pass : {firstPass, secondPass})
		for (const auto &l : lines)
			if (pass(l.major, l.minor))
				out[n++] = encode(static_cast<unsigned long long>(l.major), static_cast<unsigned long long>(l.minor));
	if (n == 0) {
		std::free(out);
		return 0;
	}
	*numbers = out;
	return n;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetInfo(int type, unsigned int devNumber, DiskBriefInfo **info)
try {
	if (type != 1 || !info) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<Line> lines;
	if (readPartitions(lines, 4) < 0)
		return -1;
	const Line *hit = nullptr;
	for (const auto &l : lines)
		if ((firstPass(l.major, l.minor) || secondPass(l.major, l.minor)) &&
		    encode(static_cast<unsigned long long>(l.major), static_cast<unsigned long long>(l.minor)) == devNumber) {
			hit = &l;
			break;
		}
	if (!hit) {
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	std::string dev = "/dev/" + hit->name;
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
	rec->devNumber = devNumber;
	std::snprintf(rec->name, sizeof(rec->name), "%s", hit->name.c_str());
	rec->type = 7;
	rec->capacityMiB = bytes >> 20;
	*info = rec;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
