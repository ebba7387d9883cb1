// A hostile SATA drive: IDENTIFY, the SMART data and threshold pages and
// the extended log pages come from the input, and so do the failures and
// status bytes around them. The first byte picks the question; every text
// handed out stays in its buffer.
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>

#include "frame/device.h"
#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::FeedFn feed = vexo::fuzz::hostileDrive();
	if (size < 1)
		return 0;
	const uint8_t pick = data[0] % 7;
	feed(data + 1, size - 1);
	const char *path = "/dev/sda";
	char sn[32], text[32];
	switch (pick) {
	case 0: {
		unsigned char identify[512];
		(void)SmartIdentifyRead(path, identify);
		break;
	}
	case 1:
		vexo::fuzz::firmAndSerial(SmartFirmAndSerialRead, path);
		break;
	case 2: {
		unsigned char values[512], thresholds[512];
		(void)SmartDataRead(path, values, thresholds);
		break;
	}
	case 3: {
		int t = VEXODiskTemperatureGet(path);
		if (t < -1 || t > 255)
			std::abort();
		break;
	}
	case 4:
		vexo::fuzz::filled(VEXODiskFormFactorSizeGet(path, text, sizeof(text)), text, sizeof(text));
		break;
	case 5:
		vexo::fuzz::filled(VEXODiskMaskSerialGet(path, sn, sizeof(sn)), sn, sizeof(sn));
		break;
	default: {
		// The extended logs of one and of several sectors, straight.
		int h = vexo::dev::openHandle(path, O_RDONLY | O_NONBLOCK);
		if (h >= 0) {
			static unsigned char logs[8 * 512];
			(void)SMARTReadLogExt(h, 0, 1, 0x04, 0, logs);
			(void)SMARTReadLogExt(h, 0, 8, 0xA1, 1, logs);
			vexo::dev::close(h);
		}
		break;
	}
	}
	return 0;
}
