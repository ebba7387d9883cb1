// The two XML documents the library reads, as anyone may have written them:
// the disk action database and the temperature history. The first byte
// picks the document.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vexohw/disk_state.h>
#include <vexohw/disk_enum.h>

#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	if (size < 1)
		return 0;
	const bool actions = data[0] & 1;
	++data;
	--size;
	if (actions) {
		vexo::fuzz::put("/var/lib/diskaction/diskaction.xml", data, size);
		unsigned flags = 0;
		(void)VEXODiskConfigDiskActionGet("/dev/sda", &flags);
		(void)VEXODiskConfigVendorMatch("/dev/sda", "Vexology");
		(void)VEXODiskInSCTCmdBlackList("/dev/sda");
	} else {
		vexo::fuzz::put("/var/lib/temperature/disk_temperature.xml", data, size);
		SharedDiskInfo info;
		std::memset(&info, 0, sizeof(info));
		std::strcpy(info.info.path, "/dev/sda");
		(void)VEXODiskParseXmlOperatingTemp("/var/lib/temperature/disk_temperature.xml", &info);
	}
	return 0;
}
