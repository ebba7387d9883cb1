// Firmware revision and serial number of a disk: INQUIRY on the SCSI path,
// IDENTIFY on the ATA paths, the controller's identify data for NVMe. The
// serial the user sees on the maker's own hard disks is the one stored on
// the drive, masked once when it was first read.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/text.h"
#include "frame/priv.h"

namespace {

constexpr int kMinFirmwareSize = 8;
constexpr int kMinSerialSize = 20;
// Room for every source: IDENTIFY gives 20 and 8 characters, the VPD page
// up to 252, NVMe 20 and 8.
constexpr int kSerialBuffer = 256;
constexpr int kFirmwareBuffer = 64;

// IDENTIFY DEVICE words 10-19 and 23-26.
constexpr int kIdentifySerialOffset = 20, kIdentifySerialLength = 20;
constexpr int kIdentifyFirmwareOffset = 46, kIdentifyFirmwareLength = 8;
// Standard INQUIRY: product revision level.
constexpr int kInquiryRevisionOffset = 32, kInquiryRevisionLength = 4;

// ATA strings are big-endian words: swap each pair, end, trim.
void identifyString(const unsigned char *identify, int offset, int length, char *out)
{
	for (int i = 0; i < length; i += 2) {
		out[i] = static_cast<char>(identify[offset + i + 1]);
		out[i + 1] = static_cast<char>(identify[offset + i]);
	}
	out[length] = '\0';
	if (VLIBCStrTrimSpace(out) != 0)
		vlog(LOG_ERR, "%s:%d Failed to trim space of [%s]", VEXO_AT, out);
}

int AtaSmartFirmAndSerialRead(int fd, DriveCommandInterface iface, char *firmware, char *serial)
{
	unsigned char identify[512] = {};
	if (iface(fd, CMD_IDENTIFY, identify) != 0 && iface(fd, CMD_PACKET_IDENTIFY, identify) != 0) {
		vlog(LOG_ERR, "%s:%d Read identify failed\n", VEXO_AT);
		return -1;
	}
	if (identify[510] == 0xA5 && VEXOSmartChecksum(identify) != 0) {
		vlog(LOG_ERR, "Read identify failed\n");
		return -1;
	}
	identifyString(identify, kIdentifySerialOffset, kIdentifySerialLength, serial);
	identifyString(identify, kIdentifyFirmwareOffset, kIdentifyFirmwareLength, firmware);
	return 0;
}

int ScsiFirmAndSerialRead(int fd, char *firmware, char *serial)
{
	unsigned char buf[512] = {};
	if (sas_command_interface(fd, SCSI_INQUIRY_SERIAL, buf) != 0)
		return -1;
	int length = buf[3]; // at most 255, within the buffer
	buf[length + 4] = '\0';
	const size_t n = strnlen(reinterpret_cast<const char *>(buf + 4), kSerialBuffer - 1);
	std::memcpy(serial, buf + 4, n);
	serial[n] = '\0';
	std::memset(buf, 0, sizeof(buf));
	if (sas_command_interface(fd, SCSI_INQUIRY, buf) != 0)
		return -1;
	std::memcpy(firmware, buf + kInquiryRevisionOffset, kInquiryRevisionLength);
	firmware[kInquiryRevisionLength] = '\0';
	return 0;
}

// The serial the user sees on one of the maker's hard disks.
void MaskSerial(const char *path, char *serial)
{
	char stored[kSerialBuffer] = {};
	if (VEXODiskMaskSerialGet(path, stored, sizeof(stored)) == 0) {
		vexo::copyText(serial, kSerialBuffer, stored);
		return;
	}
	// Nothing stored yet: mask once, and keep it on the drive so that the
	// user sees the same serial from now on.
	if (std::strlen(serial) > 3 && serial[3] == '0' && VEXODiskIsMaskSerial(path) == 1)
		serial[3] = '1';
	if (VEXODiskMaskSerialSet(path, serial) != 0)
		vlog(LOG_ERR, "%s:%d %s(%d) VEXODiskLogPage set failed", VEXO_AT, "MaskSerial", __LINE__);
}

int DoSmartFirmAndSerialRead(const char *path, char *firmware, int firmwareSize, char *serial, int serialSize,
			     int raw)
{
	ENTERCriticalSection;
	if (!path || !firmware || !serial || firmwareSize < kMinFirmwareSize || serialSize < kMinSerialSize) {
		vlog(LOG_ERR, "%s(%d) bad parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char fw[kFirmwareBuffer] = {};
	char sn[kSerialBuffer] = {};
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME) {
		if (VEXONVMeFirmAndSerialRead(path, fw, sizeof(fw), sn, sizeof(sn)) != 0) {
			vlog(LOG_ERR, "%s(%d) VEXONVMeFirmAndSerialRead", VEXO_AT);
			return -1;
		}
	} else {
		std::string dev = vexo::disk::devicePath(path);
		vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY | O_NONBLOCK);
		if (!d) {
			vlog(LOG_ERR, "%s(%d) open device %s fail", VEXO_AT, path);
			VEXO_ERR(VEXO_ERR_DEVICE);
			return -1;
		}
		DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
		int r = iface == sas_command_interface ? ScsiFirmAndSerialRead(d.handle(), fw, sn)
						       : AtaSmartFirmAndSerialRead(d.handle(), iface, fw, sn);
		if (r != 0) {
			VEXO_ERR(VEXO_ERR_DEVICE);
			return -1;
		}
	}
	// A serial is one word wherever it is shown.
	if (VLIBCStrTrimSpace(sn) != 0)
		vlog(LOG_ERR, "%s:%d Failed to trim space of [%s]", VEXO_AT, sn);
	for (int i = 0; i < kSerialBuffer && VLIBCStrReplace(sn, sizeof(sn), " ", "_") == 1; ++i) {
	}
	if (!raw && VEXODiskIsSSD(path) == 0 && VEXODiskIsVexology(path) == 1)
		MaskSerial(path, sn);
	// The smallest buffers callers may pass (8 and 20 bytes) are one byte
	// short of the longest texts: those are cut to the buffer.
	vexo::copyTextCut(firmware, firmwareSize, fw);
	vexo::copyTextCut(serial, serialSize, sn);
	return 0;
}

} // namespace

extern "C" {

VEXO_API int SmartFirmAndSerialRead(const char *path, char *firmware, int firmwareSize, char *serial,
				    int serialSize)
try {
	return DoSmartFirmAndSerialRead(path, firmware, firmwareSize, serial, serialSize, 1);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskGetSerialForUi(const char *path, char *serial, int serialSize)
try {
	char firmware[kFirmwareBuffer];
	return DoSmartFirmAndSerialRead(path, firmware, sizeof(firmware), serial, serialSize, 0);
} VEXO_C_CATCH(-1)

VEXO_API int SmartFirmwareGet(const char *path, char *firmware, int firmwareSize)
try {
	char serial[kSerialBuffer];
	return DoSmartFirmAndSerialRead(path, firmware, firmwareSize, serial, sizeof(serial), 1);
} VEXO_C_CATCH(-1)

} // extern "C"
