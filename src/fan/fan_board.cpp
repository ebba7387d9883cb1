// What the fan loop asks the board control device: the CPU and system
// sensors, the surface temperature a user sees, its warning limit, and the
// three ways a group's speed is applied (board fans, CPU fan, unit fans).
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <vexohw/disk_port.h>
#include <vexohw/fan_table.h>

#include "fan/fan_board.h"
#include "fan/fan_sources.h"
#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace vexo::fan {
namespace {

constexpr unsigned long kCpuTemperatureRequest = 0xC0104B22UL;
constexpr unsigned long kSysTemperatureRequest = 0xC0044B10UL;
constexpr unsigned long kFanSpeedRequest = 0xC00C4B0CUL;
constexpr unsigned long kCpuFanSpeedRequest = 0xC00C4B23UL;
constexpr unsigned long kFanRegisterRequest = 0xC0024B14UL;
constexpr int kSensorMax = 250; // above is a sensor's error code, not degrees
constexpr const char *kWarningFile = "/tmp/systempwarning";

// The driver's record of the CPU sensors: what is asked, how many answer, the readings.
struct CpuTemperatures {
	int32_t type;
	int32_t count;
	int32_t temps[16];
};

vexo::dev::Device openBoard()
{
	return vexo::dev::Device::open(VEXO_FAN_BOARD_DEVICE, O_RDWR);
}

bool cpuRequest(int type, CpuTemperatures &rec)
{
	vexo::dev::Device bios = openBoard();
	if (!bios) {
		vlog(LOG_ERR, "%s:%d open vexobios fail", VEXO_AT);
		return false;
	}
	rec = CpuTemperatures{};
	rec.type = type;
	if (bios.ioctl(kCpuTemperatureRequest, &rec) < 0) {
		vlog(LOG_ERR, "%s:%d (%s): GetCpuTemperature fail\n", VEXO_AT, __func__);
		return false;
	}
	rec.count = std::clamp(rec.count, 0, 16);
	return true;
}

bool sysRequest(int32_t &out)
{
	vexo::dev::Device bios = openBoard();
	if (!bios) {
		vlog(LOG_ERR, "%s:%d open vexobios fail", VEXO_AT);
		return false;
	}
	int32_t v = 0;
	if (bios.ioctl(kSysTemperatureRequest, &v) < 0) {
		vlog(LOG_ERR, "%s:%d (%s): GetSysTemperature fail\n", VEXO_AT, __func__);
		return false;
	}
	out = v;
	return true;
}

int sendSpeed(const vexo::dev::Device &bios, unsigned long req, uint32_t speed)
{
	uint32_t rec[3] = {0, 1, speed};
	return bios.ioctl(req, rec);
}

// Whether a standing fan needs a push at speed 6 before it can take the target.
bool needsKick(uint32_t target, uint32_t current)
{
	if (target <= 5)
		return current == 1 || current == 10;
	if (target <= 14)
		return current == 10;
	if (target < FAN_SPEED_DUTY_BASE)
		return false;
	if (((target - FAN_SPEED_DUTY_BASE) & 0xFF) > 64)
		return false;
	return current == 1 || current == 10 || (current & 0xFF) == 0xE8;
}

} // namespace

bool boardCapability(int capability)
{
	// The board answers for the sensors it has; one it lacks is refused.
	vexo::dev::Device bios = openBoard();
	if (!bios)
		return false;
	if (capability == kCapSysSensor) {
		int32_t v = 0;
		return bios.ioctl(kSysTemperatureRequest, &v) == 0;
	}
	if (capability == kCapCpuSensor) {
		CpuTemperatures rec{};
		return bios.ioctl(kCpuTemperatureRequest, &rec) == 0;
	}
	return false;
}

int cpuTemperatureGet(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *)
{
	CpuTemperatures rec;
	if (!reading || !boardCapability(kCapCpuSensor) || !cpuRequest(0, rec))
		return FAN_SOURCE_NONE;
	int best = -1;
	for (int i = 0; i < rec.count; ++i)
		if (rec.temps[i] <= kSensorMax && (best < 0 || rec.temps[i] > rec.temps[best]))
			best = i;
	if (best < 0)
		return FAN_SOURCE_NONE;
	reading->temperature = rec.temps[best];
	std::snprintf(reading->name, sizeof reading->name, "%d", best);
	return FAN_SOURCE_CPU;
}

int thermalTemperatureGet(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h)
{
	if (!reading || !h || h->config_name != FAN_CONFIG_NAME_INTERNAL) {
		vlog(LOG_ERR, "%s:%d wrong pHandle type", VEXO_AT);
		return FAN_SOURCE_NONE;
	}
	// A board without the sensor runs its system table from the disks.
	if (!boardCapability(kCapSysSensor))
		return listRead(VEXODiskInternalDiskWithoutM2Enum, reading, h, false);
	int32_t v = 0;
	if (!sysRequest(v))
		return FAN_SOURCE_NONE;
	reading->temperature = v;
	return FAN_SOURCE_THERMAL;
}

int peripheralSpeedChange(FAN_SPEED speed, VEXO_FAN_HANDLE_T *h) try {
	if (!h) {
		vlog(LOG_ERR, "%s:%d parameter error \n", VEXO_AT);
		return -1;
	}
	vexo::dev::Device bios = openBoard();
	if (!bios) {
		vlog(LOG_ERR, "%s:%d open vexobios fail", VEXO_AT);
		return -1;
	}
	uint32_t current = h->current ? (uint32_t)h->current->speed : 0;
	if (needsKick(speed, current)) {
		if (sendSpeed(bios, kFanSpeedRequest, FAN_SPEED_HIGH) < 0) {
			vlog(LOG_ERR, "%s:%d ioctl error \n", VEXO_AT);
			return -1;
		}
		vexo::clock::sleepMs(1000);
	}
	if (sendSpeed(bios, kFanSpeedRequest, speed) < 0) {
		vlog(LOG_ERR, "%s:%d ioctl error \n", VEXO_AT);
		return -1;
	}
	if (h->current)
		h->current->speed = speed;
	return 0;
}
VEXO_C_CATCH(-1)

int cpuFanSpeedChange(FAN_SPEED speed, VEXO_FAN_HANDLE_T *h) try {
	if (!h) {
		vlog(LOG_ERR, "%s:%d parameter error", VEXO_AT);
		return -1;
	}
	if (h->config_name != FAN_CONFIG_NAME_CPUFAN) {
		vlog(LOG_ERR, "%s:%d wrong pHandle type", VEXO_AT);
		return -1;
	}
	vexo::dev::Device bios = openBoard();
	if (!bios) {
		vlog(LOG_ERR, "%s:%d open vexobios fail", VEXO_AT);
		return -1;
	}
	// From a standstill the fan is brought up at LOW before ULTRA_LOW holds.
	if (speed == FAN_SPEED_ULTRA_LOW && h->current && h->current->speed == FAN_SPEED_STOP) {
		if (sendSpeed(bios, kCpuFanSpeedRequest, FAN_SPEED_LOW) < 0) {
			vlog(LOG_ERR, "%s:%d ioctl error", VEXO_AT);
			return -1;
		}
		vexo::clock::sleepMs(1000);
	}
	if (sendSpeed(bios, kCpuFanSpeedRequest, speed) < 0) {
		vlog(LOG_ERR, "%s:%d ioctl error", VEXO_AT);
		return -1;
	}
	if (h->current)
		h->current->speed = speed;
	return 0;
}
VEXO_C_CATCH(-1)

int eboxSpeedChange(FAN_SPEED speed, VEXO_FAN_HANDLE_T *h) try {
	if (!h || h->config_name != FAN_CONFIG_NAME_EBOX || !h->ebox || !h->ebox->unit || !h->ebox->unit->FanCTL) {
		vlog(LOG_ERR, "%s:%d wrong pHandle type", VEXO_AT);
		return -1;
	}
	if (h->ebox->unit->FanCTL(h->ebox->unit, speed) == 0)
		return -1;
	if (h->current)
		h->current->speed = speed;
	return 0;
}
VEXO_C_CATCH(-1)

int fanRegisterGet(uint16_t &value)
{
	vexo::dev::Device bios = openBoard();
	uint16_t v = 0;
	if (!bios || bios.ioctl(kFanRegisterRequest, &v) < 0)
		return -1;
	value = v;
	return 0;
}

} // namespace vexo::fan

using namespace vexo::fan;

extern "C" VEXO_API int VEXOHWSurfaceTempGet(int *temperature) try {
	if (!temperature)
		return 0;
	if (boardCapability(kCapCpuSensor)) {
		CpuTemperatures rec;
		if (!cpuRequest(1, rec))
			return 0;
		auto degrees = [](int32_t v) { return v > kSensorMax ? 0 : v; };
		if (rec.count > 0) {
			int t = std::max(*temperature, degrees(rec.temps[0]));
			if (rec.count != 1) {
				t = std::max(t, degrees(rec.temps[1]));
				*temperature = t;
			}
		}
		return FAN_SOURCE_CPU;
	}
	if (boardCapability(kCapSysSensor)) {
		int32_t v = 0;
		if (!sysRequest(v))
			return 0;
		*temperature = v;
		return FAN_SOURCE_THERMAL;
	}
	return 0;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOHWSysTempDegree(int *temperature) try {
	if (!temperature) {
		vlog(LOG_ERR, "%s:%d !piTemperature ", VEXO_AT);
		return -1;
	}
	if (!boardCapability(kCapCpuSensor) && !boardCapability(kCapSysSensor))
		return -1;
	int surface = -1;
	if (VEXOHWSurfaceTempGet(&surface) == 0)
		vlog(LOG_ERR, "%s:%d Failed to get surface temperature", VEXO_AT);
	VEXO_FAN_READING_T disks{};
	if (listRead(VEXODiskInternalDiskWithoutM2Enum, &disks, nullptr, false) == FAN_SOURCE_NONE) {
		vlog(LOG_ERR, "%s:%d Failed to get disks temperature", VEXO_AT);
		disks.temperature = -1;
	}
	*temperature = std::max(surface, disks.temperature);
	if (surface < 0 && disks.temperature < 0) {
		vlog(LOG_ERR, "%s:%d Get wrong sys temperature", VEXO_AT);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOHWSysTempWarning(int *warning) try {
	if (!warning)
		return -1;
	*warning = 0;
	const bool sys = boardCapability(kCapSysSensor);
	if (vexo::sysroot::access(kWarningFile, F_OK) != 0 && sys)
		return 0;
	if (!sys && !boardCapability(kCapCpuSensor))
		return -1;
	int mode = VEXOFanAdjustDualModeGet("fan_config_type_internal");
	const char *key = mode == DUAL_MODE_LOW	       ? "mode_low"
			  : mode == DUAL_MODE_HIGH     ? "mode_high"
			  : mode == DUAL_MODE_LOW_STOP ? "mode_low_stop"
			  : mode == DUAL_MODE_FULL     ? "mode_full"
						       : nullptr;
	if (!key) {
		vlog(LOG_ERR, "%s:%d wrong fan config type %d for getting warning temperature", VEXO_AT, mode);
		return -1;
	}
	char value[32] = {};
	if (VLIBCFileGetKeyValue(kWarningFile, key, value, sizeof value, 0) <= 0)
		return -1;
	char *end = nullptr;
	long limit = std::strtol(value, &end, 10);
	if (end == value || *end)
		return -1;
	int surface = -1;
	if (VEXOHWSurfaceTempGet(&surface) == 0) {
		vlog(LOG_ERR, "%s:%d Failed to get surface temperature", VEXO_AT);
		return -1;
	}
	*warning = surface > limit ? 1 : 0;
	return 0;
}
VEXO_C_CATCH(-1)
