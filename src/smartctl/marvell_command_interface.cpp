// ATA commands through the Marvell controller's vendor SCSI wrapper.
#include <cerrno>
#include <cstring>
#include <scsi/scsi_ioctl.h>
#include <vexohw/smartctl.h>

#include "frame/device.h"
#include "frame/err.h"
#include "smartctl/drive_command_tables.h"

using namespace vexo::smart;

namespace {

// The SCSI_IOCTL_SEND_COMMAND record: lengths, then the command area.
struct MarvellRecord {
	unsigned int inLength;
	unsigned int outLength;
	unsigned char area[kMarvellAreaSize];
};
static_assert(sizeof(MarvellRecord) == 548);

} // namespace

extern "C" {

VEXO_API int marvell_command_interface(int fd, unsigned int command, void *data)
try {
	if (command > CMD_DRIVE_FLUSH)
		return -1;
	if (command == CMD_DRIVE_FLUSH) {
		if (vexo::dev::ioctl(fd, SCSI_IOCTL_SEND_COMMAND, nullptr) == 0 || errno == EINVAL)
			return 0;
		vlog(LOG_ERR, "%s:%d marvell ioctl SCSI_IOCTL_SEND_COMMAND error \n", VEXO_AT);
		return -1;
	}
	const AtaRow *row = command == CMD_IDLE ? &kMarvellIdle : findRow(kAtaTable, command);
	if (!row)
		return -1;
	auto *bytes = static_cast<unsigned char *>(data);
	if ((row->bytesReturned || command == CMD_IDLE) && !bytes) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}

	MarvellRecord rec;
	std::memset(&rec, 0, sizeof(rec));
	rec.inLength = kMarvellAreaSize;
	rec.outLength = kMarvellAreaSize;
	rec.area[0] = kMarvellVendorCode;
	rec.area[4] = 6;
	rec.area[6] = row->command;
	rec.area[7] = row->sectorNumber;
	rec.area[8] = row->features;
	rec.area[9] = command == CMD_IDLE ? bytes[0] : row->sectorCount;

	if (vexo::dev::ioctl(fd, SCSI_IOCTL_SEND_COMMAND, &rec) != 0) {
		vlog(LOG_ERR, "%s:%d marvell ioctl SCSI_IOCTL_SEND_COMMAND error \n", VEXO_AT);
		return -1;
	}
	if (command == CMD_CHECK_POWER_MODE) {
		if (bytes)
			bytes[0] = rec.area[9];
	} else if (row->bytesReturned) {
		std::memcpy(bytes, rec.area + 6, 512);
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
