// SMART WRITE LOG of one sector through ATA PASS-THROUGH.
#include <cstring>
#include <vexohw/smartctl.h>

#include "frame/err.h"
#include "smartctl/sg_io_exec.h"

using namespace vexo::smart;

extern "C" {

VEXO_API int SMARTWriteLog(int fd, unsigned char features, unsigned char logAddress, const void *data, int length)
try {
	if (length < 0 || length > 512 || (length > 0 && !data)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	unsigned char sector[512] = {};
	if (length > 0)
		std::memcpy(sector, data, length);
	SatRow row = kSmartWriteLog;
	row.features = features;
	row.lbaLow = logAddress;
	uint8_t cdb[16];
	satCdb(row, cdb);
	uint8_t sense[kSenseLength];
	sg_io_hdr_t hdr;
	if (sgIoExec(fd, {cdb, 16, SG_DXFER_TO_DEV, sector, sizeof(sector), kSatTimeoutMs}, hdr, sense) != 0) {
		vlog(LOG_ERR, "%s:%d sat smart write log failed\n", VEXO_AT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
