// The nominal form factor of a drive, from IDENTIFY word 168.
#include <cstdio>
#include <vexohw/disk_probe.h>
#include <vexohw/smartctl.h>

#include "disk/probe_text.h"
#include "frame/err.h"

namespace {

struct FormFactorRow {
	unsigned value;
	const char *text;
};

constexpr FormFactorRow kFormFactors[] = {
	{1, "5.25"}, {2, "3.5"}, {3, "2.5"}, {4, "1.8"}, {5, "below 1.8"},
};

} // namespace

extern "C" VEXO_API int VEXODiskFormFactorSizeGet(const char *path, char *text, int size)
try {
	if (!path || !*path || !text || size <= 0) {
		vlog(LOG_ERR, "%s:%d Invalid inputed parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return vexo::disk::putWhole(text, size, "unknown");

	unsigned char identify[512] = {};
	if (SmartIdentifyRead(path, identify) != 0) {
		// A SCSI drive has no IDENTIFY page: not worth a log line.
		if (VLIBCErrGet() != VEXO_ERR_WRONG_IFACE)
			vlog(LOG_ERR, "%s:%d Failed to read smart identify", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	}
	// The word is taken whole: reserved bits set make it an unknown value.
	const unsigned word = identify[2 * 168] | (identify[2 * 168 + 1] << 8);
	for (const FormFactorRow &row : kFormFactors)
		if (row.value == word)
			return vexo::disk::putWhole(text, size, row.text);
	char unknown[32];
	std::snprintf(unknown, sizeof(unknown), "unknown (0x%04x] inch", word);
	return vexo::disk::putWhole(text, size, unknown);
} VEXO_C_CATCH(-1)
