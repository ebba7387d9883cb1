// READ LOG EXT through ATA PASS-THROUGH, whatever path the disk normally uses.
#include <cstring>
#include <vexohw/smartctl.h>

#include "frame/err.h"
#include "smartctl/sg_io_exec.h"

using namespace vexo::smart;

extern "C" {

VEXO_API int SMARTReadLogExt(int fd, unsigned char features, unsigned int sectors, unsigned char logAddress,
			     unsigned int page, void *buffer)
try {
	if (!buffer) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	unsigned length = sectors * 512;
	std::memset(buffer, 0, length);
	uint8_t cdb[16] = {};
	cdb[0] = 0x85;
	cdb[1] = kReadLogExtProtocol;
	cdb[2] = kReadLogExtFlags;
	cdb[4] = features;
	cdb[6] = static_cast<uint8_t>(sectors);
	cdb[8] = logAddress;
	cdb[10] = static_cast<uint8_t>(page);
	cdb[14] = kReadLogExtCommand;
	uint8_t sense[kSenseLength];
	sg_io_hdr_t hdr;
	if (sgIoExec(fd, {cdb, 16, SG_DXFER_FROM_DEV, buffer, length, kSatTimeoutMs}, hdr, sense) != 0) {
		vlog(LOG_ERR, "%s:%d sat read log ext failed\n", VEXO_AT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
