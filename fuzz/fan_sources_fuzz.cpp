// The fan sources' outside files as a hand-edited debug file or a damaged
// driver may leave them (parts cut at NUL bytes): a debug override line, a
// SAS host's temperature and board name, and an adapter's temperature, each
// read through its table's operations.
#include <cstddef>
#include <cstdint>
#include <vexohw/fan_table.h>

#include "fuzz_box.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	vexo::fuzz::hostileDrive()(nullptr, 0);
	auto parts = vexo::fuzz::pieces(data, size, 4);
	auto put = [&](const char *path, size_t i) {
		std::string_view s = i < parts.size() ? parts[i] : std::string_view();
		vexo::fuzz::put(path, reinterpret_cast<const uint8_t *>(s.data()), s.size());
	};
	const char *host = "/sys/class/sas_host/host0/device/scsi_host/host0/";
	put("/tmp/disktmp.txt", 0);
	put((std::string(host) + "ioc_temperature").c_str(), 1);
	put((std::string(host) + "board_name").c_str(), 2);
	put("/sys/class/net/eth0/device/subsystem_vendor", 3);
	vexo::fuzz::put("/sys/class/net/eth0/device/subsystem_device", reinterpret_cast<const uint8_t *>("0x1001\n"), 7);
	put("/sys/class/net/eth0/temperature", 1);
	VEXOFanTableTypeOpsListInit();
	VEXO_FAN_READING_T r{};
	(void)VEXOFanIsTemperatureDebugON(&r, "/tmp/disktmp.txt");
	VEXO_FAN_HANDLE_T h{};
	h.hibernating = 1;
	for (int type : {FAN_TABLE_DISK, FAN_TABLE_SAS, FAN_TABLE_XNIC01}) {
		VEXO_FAN_TABLE_OPS_T *ops = VEXOFanTableTypeOpsGet(type);
		int source = 0;
		r = VEXO_FAN_READING_T{};
		if (ops && ops->DebugTemperatureGet)
			(void)ops->DebugTemperatureGet(&r, &h, &source);
		r = VEXO_FAN_READING_T{};
		if (ops && ops->TemperatureGet)
			(void)ops->TemperatureGet(&r, &h);
	}
	return 0;
}
