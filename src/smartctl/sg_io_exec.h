// The SG_IO plumbing shared by the SAT and SCSI interfaces and the raw log
// operations: one sg_io_hdr filled one way.
#pragma once

#include <cstdint>
#include <scsi/sg.h>

#include "smartctl/drive_command_tables.h"

namespace vexo::smart {

struct SgRequest {
	const uint8_t *cdb;
	unsigned char cdbLength;
	int direction; // SG_DXFER_*
	void *data;
	unsigned length;
	unsigned timeoutMs;
};

// Issues one SG_IO through the device seam. Returns the ioctl's result;
// hdr and sense (kSenseLength bytes) hold what came back.
int sgIoExec(int fd, const SgRequest &req, sg_io_hdr_t &hdr, uint8_t *sense);

// The 16-byte ATA PASS-THROUGH CDB of a row.
void satCdb(const SatRow &row, uint8_t cdb[16]);

} // namespace vexo::smart
