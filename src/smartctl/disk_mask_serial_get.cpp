// The serial stored on the drive for display: a host vendor log page on
// ATA drives (also behind SAT bridges), the application client log page on
// SAS drives. The Marvell wrapper passes neither.
#include <cstdio>
#include <cstring>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/text.h"

namespace {

// SMART READ LOG EXT / SMART WRITE LOG of host vendor log 0x9a.
constexpr unsigned char kSerialLogFeatures = 214;
constexpr unsigned char kSerialLogAddress = 154;
constexpr int kMinStoredSerial = 6;
constexpr int kMaxStoredSerial = 24;

// The application client page as LOG SELECT takes it: page 0x0f with a
// page length of 256, one parameter (code 0, control 0x83, 252 bytes).
constexpr int kApplicationClientLength = 260;
constexpr int kApplicationClientText = 8;
constexpr int kApplicationClientTextMax = 252;

// Closes a handle of the device seam.
struct Handle {
	int h;
	explicit Handle(int handle) : h(handle) {}
	~Handle()
	{
		if (h >= 0)
			vexo::dev::close(h);
	}
	Handle(const Handle &) = delete;
	Handle &operator=(const Handle &) = delete;
};

int openRaw(const char *path)
{
	char dev[128] = {};
	std::string name = vexo::disk::shortName(path);
	if (VEXODiskDevPathGetByName(name.c_str(), dev, sizeof(dev)) != 0)
		std::snprintf(dev, sizeof(dev), "%s", vexo::disk::devicePath(path).c_str());
	return VEXOIDiskRawOpen(dev);
}

// Copies a stored text out once it passes the plausibility test.
int acceptStored(const char *text, char *serial, int size)
{
	if (!VEXODiskSerialLengthCheck(text)) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return VEXO_COPY_OUT(serial, size, text, "serial") ? 0 : -1;
}

int VEXOSATALogPageSerialGet(const char *path, char *serial, int size)
{
	Handle fd(openRaw(path));
	if (fd.h < 0)
		return -1;
	unsigned char page[513] = {};
	if (SMARTReadLogExt(fd.h, kSerialLogFeatures, 1, kSerialLogAddress, 0, page) != 0)
		return -1;
	return acceptStored(reinterpret_cast<const char *>(page), serial, size);
}

int VEXOSATALogPageSerialSet(const char *path, const char *serial)
{
	Handle fd(openRaw(path));
	if (fd.h < 0)
		return -1;
	return SMARTWriteLog(fd.h, kSerialLogFeatures, kSerialLogAddress, serial,
			     static_cast<int>(std::strlen(serial)));
}

int VEXOSASApplicationClientSerialGet(const char *path, char *serial, int size)
{
	Handle fd(openRaw(path));
	if (fd.h < 0)
		return -1;
	unsigned char page[512] = {};
	if (sas_command_interface(fd.h, SCSI_LOG_APPLICATION_CLIENT, page) != 0)
		return -1;
	page[kApplicationClientText + kApplicationClientTextMax] = '\0';
	return acceptStored(reinterpret_cast<const char *>(page + kApplicationClientText), serial, size);
}

int ScsiWriteApplicationClient(int fd, const char *text)
{
	unsigned char list[kApplicationClientLength] = {};
	list[0] = 0x0F;
	list[2] = 0x01;
	list[6] = 0x83;
	list[7] = 0xFC;
	std::memcpy(list + kApplicationClientText, text, strnlen(text, kApplicationClientTextMax));
	if (sas_command_interface(fd, SCSI_LOG_SELECT_APPLICATION_CLIENT, list) != 0) {
		vlog(LOG_ERR, "%s:%d %s(%d) sas_command_interface set application client failed.", VEXO_AT,
		     "ScsiWriteApplicationClient", __LINE__);
		return -1;
	}
	return 0;
}

int VEXOSASApplicationClientSerialSet(const char *path, const char *serial)
{
	Handle fd(openRaw(path));
	if (fd.h < 0)
		return -1;
	return ScsiWriteApplicationClient(fd.h, serial);
}

enum class Store { AtaLog, ApplicationClient, None };

Store storeOf(const char *path)
{
	// NVMe drives have neither page; the ATA answer the selection gives
	// them is not a working path.
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return Store::None;
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (iface == sat_command_interface || iface == ata_command_interface)
		return Store::AtaLog;
	if (iface == sas_command_interface)
		return Store::ApplicationClient;
	return Store::None;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskSerialLengthCheck(const char *serial)
try {
	if (!serial)
		return 0;
	size_t n = std::strlen(serial);
	return n >= kMinStoredSerial && n <= kMaxStoredSerial ? 1 : 0;
} VEXO_C_CATCH(0)

VEXO_API int VEXODiskMaskSerialGet(const char *path, char *serial, int serialSize)
try {
	if (!path || !serial || serialSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	switch (storeOf(path)) {
	case Store::AtaLog:
		return VEXOSATALogPageSerialGet(path, serial, serialSize);
	case Store::ApplicationClient:
		return VEXOSASApplicationClientSerialGet(path, serial, serialSize);
	case Store::None:
		break;
	}
	VEXO_ERR(VEXO_ERR_WRONG_IFACE);
	return -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskMaskSerialSet(const char *path, const char *serial)
try {
	// What could not be read back is not written.
	if (!path || !VEXODiskSerialLengthCheck(serial)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	switch (storeOf(path)) {
	case Store::AtaLog:
		return VEXOSATALogPageSerialSet(path, serial);
	case Store::ApplicationClient:
		return VEXOSASApplicationClientSerialSet(path, serial);
	case Store::None:
		break;
	}
	VEXO_ERR(VEXO_ERR_WRONG_IFACE);
	return -1;
} VEXO_C_CATCH(-1)

} // extern "C"
