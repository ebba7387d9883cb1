// Device paths from names, encoded indexes, positions and adapter card ports.
#include <cstdio>
#include <cstring>
#include <glob.h>
#include <string>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/nvme_location.h>

#include "external/text_out.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace {


int unitBayPath(int position, int unit, char *path, int size)
{
	VEXO_EBOX_INFO units[VEXO_EBOX_MAX_UNITS];
	int count = SupportEBox() ? VEXOEBoxInfoEnum(units, VEXO_EBOX_MAX_UNITS) : -1;
	if (count < 0) {
		vlog(LOG_ERR, "%s:%d Failed to enum ebox[0x%04X %s:%d]", VEXO_AT, VLIBCErrGet(), VLIBCErrFileGet(),
		     VLIBCErrLineGet());
		return -1;
	}
	for (int i = 0; i < count; ++i) {
		if (!VEXOEBoxIsPoweron(&units[i]) || units[i].unit != unit)
			continue;
		if (units[i].maxDisk >= position && units[i].disks[position - 1][0])
			return VEXO_PUT_TEXT(path, size, "%s", units[i].disks[position - 1]);
		break;
	}
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	vlog(LOG_ERR, "%s:%d Failed to find the device path[0x%04X %s:%d]", VEXO_AT, VLIBCErrGet(), VLIBCErrFileGet(),
	     VLIBCErrLineGet());
	return -1;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskDevPathGetByName(const char *name, char *path, int size)
try {
	if (!name || !*name || !path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (std::strncmp(name, "/dev/", 5) == 0)
		return VEXO_PUT_TEXT(path, size, "%s", name);
	return VEXO_PUT_TEXT(path, size, "/dev/%s", name);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDevicePathGetByIndex(int index, char *path, int size)
try {
	if (index <= 0 || !path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (index >= 1000 && VLIBCSupportNVMe())
		return VEXO_PUT_TEXT(path, size, "/dev/nvme%dn1", index - 1001);
	if (index >= 900 && index <= 910)
		return VEXO_PUT_TEXT(path, size, "/dev/sysd%d", index - 900);
	if (index >= 800)
		return VEXO_PUT_TEXT(path, size, "/dev/nvc%d", index - 800);
	if (index <= 26)
		return VEXO_PUT_TEXT(path, size, "/dev/sd%c", 'a' + index - 1);
	return VEXO_PUT_TEXT(path, size, "/dev/sd%c%c", 'a' + (index - 1) / 26 - 1, 'a' + (index - 1) % 26);
} VEXO_C_CATCH(-1)

VEXO_API int DiskDevNameGetByIdxSlot(int slot, int port, char *name, int size)
try {
	if (!name || size <= 0) {
		vlog(LOG_ERR, "%s:%d Incorrect parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *p = "/sys/block/nvc*";
	std::vector<std::string> matches;
	int rc = vexo::sysroot::glob(p, matches);
	if (rc == GLOB_NOSPACE) {
		vlog(LOG_ERR, "%s:%d out of memory to alloc glob looking for:%s", VEXO_AT, p);
		return -1;
	}
	if (rc != 0) {
		vlog(LOG_ERR, "%s:%d read error :%s", VEXO_AT, p);
		return -1;
	}
	for (const auto &m : matches) {
		std::string dev = m.substr(m.rfind('/') + 1);
		int s = -1, i = -1;
		if (DiskIndexAndSlotGet(dev.c_str(), &i, &s) == 0 && s == slot && i == port)
			return VEXO_PUT_TEXT(name, size, "/dev/%s", dev.c_str());
	}
	vlog(LOG_ERR, "%s:%d Fail to find device from %d-%d", VEXO_AT, slot, port);
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskDevicePathGetByPosition(int position, int iEncodedCnrIdx, char *path, int size)
try {
	if (position <= 0 || iEncodedCnrIdx < 0 || !path || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d out put szDevPath can not be NULL and path length can't be zero[0x%04X %s:%d]", VEXO_AT,
		     VLIBCErrGet(), VLIBCErrFileGet(), VLIBCErrLineGet());
		return -1;
	}
	switch (iEncodedCnrIdx / 1000) {
	case 0:
		if (iEncodedCnrIdx == 0) {
			if (position > 26) {
				VEXO_ERR(VEXO_ERR_BAD_PARAM);
				return -1;
			}
			return VEXO_PUT_TEXT(path, size, "%s/%s%c", "/dev", "sd", position + 96);
		}
		return unitBayPath(position, iEncodedCnrIdx, path, size);
	case 1:
		if (DiskDevNameGetByIdxSlot(iEncodedCnrIdx - 1000, position, path, size) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to get device from %d-%d", VEXO_AT, iEncodedCnrIdx - 1000, position);
			return -1;
		}
		return 0;
	case 2:
		if (!VLIBCSupportNVMe()) {
			vlog(LOG_ERR, "%s:%d Not a NVMe supported model. Please check iEncodedCnrIdx", VEXO_AT);
			VEXO_ERR(VEXO_ERR_UNSUPPORTED);
			return -1;
		}
		if (VEXONVMeDevGetByLoc(iEncodedCnrIdx - 2000, position, path, size) != 0) {
			vlog(LOG_ERR, "%s:%d Fail to get device from %d-%d", VEXO_AT, iEncodedCnrIdx - 2000, position);
			return -1;
		}
		return 0;
	case 3:
		return VEXO_PUT_TEXT(path, size, "%s/%s%d", "/dev", "sysd", position);
	default:
		vlog(LOG_ERR, "%s:%d we don't support disk container type %d.", VEXO_AT, iEncodedCnrIdx);
		VEXO_ERR(VEXO_ERR_UNSUPPORTED);
		return -1;
	}
} VEXO_C_CATCH(-1)

} // extern "C"
