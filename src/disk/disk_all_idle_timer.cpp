// The idle time before spin-down, kept by the kernel per disk.
#include <climits>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_power.h>

#include "disk/disk_power.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

using NameList = vexo::SzList;

// Internal, external SATA and expansion unit disks in one list.
bool listDisks(NameList &disks)
{
	if (!disks.p) {
		vlog(LOG_ERR, "%s:%d failed to allocate memory for PVLIBSZLIST\n", VEXO_AT);
		return false;
	}
	static constexpr struct {
		int type;
		const char *failure;
	} kinds[] = {
		{DISK_PORT_TYPE_INTERNAL, "%s:%d Fail to enum INTERNAL_DEVICE by VEXODiskPortEnum\n"},
		{DISK_PORT_TYPE_ESATA, "%s:%d Fail to enum EXTERNAL_SATA_DEVICE by VEXODiskPortEnum\n"},
		{DISK_PORT_TYPE_EBOX, "%s:%d Fail to enum EUNIT_DEVICE by VEXODiskPortEnum\n"},
	};
	for (const auto &k : kinds)
		if (VEXODiskPortEnum(k.type, &disks.p) != 0) {
			vlog(LOG_ERR, k.failure, VEXO_AT);
			return false;
		}
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskAllIdleTimerGet(unsigned long *value) try {
	if (!value) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	NameList disks;
	if (!listDisks(disks))
		return -1;
	unsigned long least = ULONG_MAX;
	for (int i = 0; i < disks.p->nItem; ++i) {
		const std::string attr = vexo::disk::deviceAttr(VLIBCSzListGet(disks.p, i), "vexo_idle_time");
		if (vexo::sysroot::access(attr.c_str(), F_OK) != 0)
			continue;
		uint64_t v = 0;
		if (!vexo::readU64(attr, v)) {
			vlog(LOG_ERR, "%s:%d Get %s fail", VEXO_AT, attr.c_str());
			return -1;
		}
		if (v < least)
			least = static_cast<unsigned long>(v);
	}
	*value = least;
	return 0;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskAllIdleTimerSet(unsigned long value) try {
	NameList disks;
	if (!listDisks(disks))
		return -1;
	const std::string text = std::to_string(value);
	int result = 0;
	for (int i = 0; i < disks.p->nItem; ++i) {
		const std::string attr = vexo::disk::deviceAttr(VLIBCSzListGet(disks.p, i), "vexo_idle_time");
		if (vexo::sysroot::access(attr.c_str(), F_OK) != 0)
			continue;
		vexo::UniqueFd fd(vexo::sysroot::open(attr.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
		if (!fd || ::write(fd.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
			vlog(LOG_ERR, "%s:%d Set %s %lu fail", VEXO_AT, attr.c_str(), value);
			result = -1;
		}
	}
	return result;
}
VEXO_C_CATCH(-1)

} // extern "C"
