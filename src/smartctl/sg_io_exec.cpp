#include "smartctl/sg_io_exec.h"

#include <cstring>

#include "frame/device.h"

namespace vexo::smart {

int sgIoExec(int fd, const SgRequest &req, sg_io_hdr_t &hdr, uint8_t *sense)
{
	std::memset(&hdr, 0, sizeof(hdr));
	std::memset(sense, 0, kSenseLength);
	hdr.interface_id = 'S';
	hdr.cmd_len = req.cdbLength;
	hdr.mx_sb_len = kSenseLength;
	hdr.dxfer_direction = req.direction;
	hdr.dxfer_len = req.length;
	hdr.dxferp = req.length ? req.data : nullptr;
	hdr.cmdp = const_cast<unsigned char *>(req.cdb);
	hdr.sbp = sense;
	hdr.timeout = req.timeoutMs;
	return dev::ioctl(fd, SG_IO, &hdr);
}

void satCdb(const SatRow &row, uint8_t cdb[16])
{
	std::memset(cdb, 0, 16);
	cdb[0] = 0x85;
	cdb[1] = row.protocol;
	cdb[2] = row.flags;
	cdb[4] = row.features;
	cdb[6] = row.sectorCount;
	cdb[8] = row.lbaLow;
	cdb[10] = row.lbaMid;
	cdb[12] = row.lbaHigh;
	cdb[14] = row.command;
}

} // namespace vexo::smart
