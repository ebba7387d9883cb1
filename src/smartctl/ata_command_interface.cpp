// Drive commands through the kernel's HDIO ioctls.
#include <cerrno>
#include <cstring>
#include <linux/hdreg.h>
#include <vector>
#include <vexohw/smartctl.h>

#include "frame/device.h"
#include "frame/err.h"
#include "smartctl/drive_command_tables.h"

using namespace vexo::smart;

extern "C" {

VEXO_API int ata_command_interface(int fd, unsigned int command, void *data)
try {
	if (command == CMD_DRIVE_FLUSH) {
		// A null argument only waits for the drive; kernels that refuse
		// the null form with EINVAL have nothing to wait for.
		if (vexo::dev::ioctl(fd, HDIO_DRIVE_CMD, nullptr) == 0 || errno == EINVAL)
			return 0;
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	const AtaRow *row = findRow(kAtaTable, command);
	if (!row)
		return -1;
	if (row->bytesReturned && !data) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}

	// The header and room for the largest transfer any command here asks for.
	std::vector<unsigned char> buf(kAtaBufferSize, 0);
	buf[0] = row->command;
	buf[1] = row->sectorNumber;
	buf[2] = row->features;
	buf[3] = row->sectorCount;

	if (command == CMD_IDENTIFY || command == CMD_PACKET_IDENTIFY) {
		// A packet device answers the other IDENTIFY: the two are swapped
		// on purpose, so that 8 on a packet device goes out as 0xEC.
		unsigned char id[512] = {};
		if (vexo::dev::ioctl(fd, HDIO_GET_IDENTITY, id) == 0 && (id[1] & 0x80))
			buf[0] = command == CMD_IDENTIFY ? 0xA1 : 0xEC;
	}

	if (vexo::dev::ioctl(fd, HDIO_DRIVE_CMD, buf.data()) != 0) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	if (command == CMD_CHECK_POWER_MODE) {
		// The drive answers in the sector count register, which the
		// kernel returns in header byte 2.
		if (data)
			static_cast<unsigned char *>(data)[0] = buf[2];
		return 0;
	}
	if (row->bytesReturned)
		std::memcpy(data, buf.data() + 4, row->bytesReturned);
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
