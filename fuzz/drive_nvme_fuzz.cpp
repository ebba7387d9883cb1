// A hostile NVMe drive: Identify Controller and the log pages come from the
// input, with the command status. The first byte picks the question; every
// text handed out stays in its buffer, and the log reader never writes past
// the length it was given.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vexohw/disk_debug.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/nvme_admin.h>

#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::FeedFn feed = vexo::fuzz::hostileDrive();
	if (size < 1)
		return 0;
	const uint8_t pick = data[0] % 6;
	feed(data + 1, size - 1);
	const char *path = "/dev/nvme0n1";
	char text[64];
	unsigned char log[600];
	std::memset(log, 0xA5, sizeof(log));
	unsigned int v = 0;
	switch (pick) {
	case 0:
		vexo::fuzz::firmAndSerial(VEXONVMeFirmAndSerialRead, path);
		break;
	case 1:
		vexo::fuzz::firmAndSerial(SmartFirmAndSerialRead, path);
		break;
	case 2:
		vexo::fuzz::filled(VEXONVMeDiskModelGet(path, text, 41), text, 41);
		vexo::fuzz::filled(VEXONVMeDiskVendorGet(path, text, sizeof(text)), text, sizeof(text));
		break;
	case 3:
		(void)VEXONVMeTemperatureGet(path);
		(void)VEXONVMeDebugCritWarningGet(path, &v);
		(void)VEXONVMeDebugPercentageUsedGet(path, &v);
		break;
	default:
		(void)VEXONVMeLogGet(path, pick == 4 ? 2 : 1, log, pick == 4 ? 512 : 64);
		(void)VEXONVMeLogGet(path, 6, log, 3);
		for (size_t i = 512; i < sizeof(log); ++i)
			if (log[i] != 0xA5)
				std::abort();
		break;
	}
	return 0;
}
