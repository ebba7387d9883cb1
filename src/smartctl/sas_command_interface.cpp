// Plain SCSI commands through SG_IO.
#include <cstring>
#include <vexohw/smartctl.h>

#include "frame/err.h"
#include "smartctl/sg_io_exec.h"

using namespace vexo::smart;

extern "C" {

VEXO_API int sas_command_interface(int fd, unsigned int command, void *data)
try {
	const ScsiRow *row = command >= SCSI_INQUIRY && command <= SCSI_TEST_UNIT_READY ? findRow(kScsiTable, command)
											  : nullptr;
	if (!row) {
		vlog(LOG_ERR, "%s:%d sas_command_interface unknown command:%d", VEXO_AT, static_cast<int>(command));
		return -1;
	}
	if (row->length && !data) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	uint8_t cdb[10];
	std::memcpy(cdb, row->cdb, sizeof(cdb));
	auto *bytes = static_cast<unsigned char *>(data);
	if (command == SCSI_START_STOP)
		cdb[4] = bytes ? (bytes[0] & 1) : 0;
	if (command == SCSI_INQUIRY_SERIAL)
		bytes[1] = 0; // a failed read leaves a page length of 0

	uint8_t sense[kSenseLength];
	sg_io_hdr_t hdr;
	SgRequest req{cdb, 10, row->direction, data, row->length, kScsiTimeoutMs};
	if (sgIoExec(fd, req, hdr, sense) < 0) {
		vlog(LOG_ERR, "%s:%d ioctl SG_IO failed. command:%d", VEXO_AT, static_cast<int>(command));
		return -1;
	}
	if (command == SCSI_TEST_UNIT_READY && bytes)
		bytes[0] = hdr.status;
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
