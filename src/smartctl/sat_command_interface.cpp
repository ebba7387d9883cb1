// ATA commands wrapped in ATA PASS-THROUGH(16) through SG_IO.
#include <cstring>
#include <vexohw/smartctl.h>

#include "frame/err.h"
#include "smartctl/sg_io_exec.h"

using namespace vexo::smart;

extern "C" {

VEXO_API int sat_command_interface(int fd, unsigned int command, void *data)
try {
	if (command == CMD_DRIVE_FLUSH)
		return 0; // nothing to wait for behind a translating bridge
	const SatRow *row = findRow(kSatTable, command);
	if (!row) {
		vlog(LOG_ERR, "%s:%d unknown command:%d \n", VEXO_AT, static_cast<int>(command));
		return -1;
	}
	if (row->bytesIn) {
		if (!data) {
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		std::memset(data, 0, row->bytesIn);
	}
	uint8_t cdb[16];
	satCdb(*row, cdb);
	uint8_t sense[kSenseLength];
	sg_io_hdr_t hdr;
	SgRequest req{cdb, 16, row->bytesIn ? SG_DXFER_FROM_DEV : SG_DXFER_NONE, data, row->bytesIn, kSatTimeoutMs};
	if (sgIoExec(fd, req, hdr, sense) != 0) {
		vlog(LOG_ERR, "%s:%d sat ioctl HDIO_DRIVE_CMD error \n", VEXO_AT);
		return -1;
	}
	// CHECK POWER MODE asks for the return descriptor (CK_COND); its
	// sector count register is sense byte 13. No sense, no answer.
	if (command == CMD_CHECK_POWER_MODE && data && hdr.sb_len_wr > 0)
		static_cast<unsigned char *>(data)[0] = sense[13];
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
