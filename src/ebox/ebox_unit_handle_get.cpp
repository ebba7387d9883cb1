// The unit-level handle: every slot a wrapper that forwards to the same
// slot of the device-level handle in `inner`, and answers 0 when the unit
// lacks the operation, so callers need not test slots.
#include <cstdlib>
#include <cstring>
#include <string>

#include "ebox/ebox_private.h"
#include "frame/err.h"

namespace vexo::ebox {
namespace {

template <auto Slot>
struct Wrap;
template <typename R, typename... A, R (*VEXO_EBOX_HANDLE::*Slot)(VEXO_EBOX_HANDLE_T *, A...)>
struct Wrap<Slot> {
	static R call(VEXO_EBOX_HANDLE_T *h, A... a)
	{
		if (!h || !h->inner || !(h->inner->*Slot))
			return 0;
		return (h->inner->*Slot)(h->inner, a...);
	}
};

template <auto Slot>
constexpr auto wrap = &Wrap<Slot>::call;

// The unit's own paths answer these; the kernel's error handling is a
// question about the port, which the unit's host info tells.
int unitDiskPathGet(VEXO_EBOX_HANDLE_T *h, int disk, char *buf, int size) { return diskPathGet(h, disk, buf, size); }
int unitInfoEHProcessGet(VEXO_EBOX_HANDLE_T *h, int *busy) { return ehProcessGet(h, busy); }

int unitIsSupportPowerBtnDisable(VEXO_EBOX_HANDLE_T *h)
{
	return h && h->inner && h->inner->PowerBtnDisableSet && h->inner->IsPowerBtnDisabled ? 1 : 0;
}

void fillWrappers(VEXO_EBOX_HANDLE_T *h, Family f, const std::string &unique)
{
	using H = VEXO_EBOX_HANDLE;
	h->EncodeCmd = wrap<&H::EncodeCmd>;
	h->ReadGpio = wrap<&H::ReadGpio>;
	h->WriteGpio = wrap<&H::WriteGpio>;
	h->IsPowerOn = wrap<&H::IsPowerOn>;
	h->FanErr = wrap<&H::FanErr>;
	h->FanSpeedGet = wrap<&H::FanSpeedGet>;
	h->UniqueGet = wrap<&H::UniqueGet>;
	h->PowerCTL = wrap<&H::PowerCTL>;
	h->LedRaidReadyCTL = wrap<&H::LedRaidReadyCTL>;
	h->LedDiskStatCTL = wrap<&H::LedDiskStatCTL>;
	h->LedDiskStatAllCTL = wrap<&H::LedDiskStatAllCTL>;
	h->FanCTL = wrap<&H::FanCTL>;
	h->VendorNameGet = vendorNameGet;
	h->DeviceIDGet = deviceIdGet;
	h->RedundantPowerStatGet = wrap<&H::RedundantPowerStatGet>;
	h->DiskPathGet = unitDiskPathGet;
	h->EHProcessGet = unitInfoEHProcessGet;
	h->IsPMPresent = isPmPresent;
	h->MaxDiskGet = wrap<&H::MaxDiskGet>;
	h->FanNumberGet = wrap<&H::FanNumberGet>;
	h->Wait = wrap<&H::Wait>;
	h->Signal = wrap<&H::Signal>;
	h->PSUBuzzerMute = wrap<&H::PSUBuzzerMute>;
	h->PowerBtnDisableSet = wrap<&H::PowerBtnDisableSet>;
	h->IsPowerBtnDisabled = wrap<&H::IsPowerBtnDisabled>;
	h->IsSupportPowerBtnDisable = unitIsSupportPowerBtnDisable;
	h->SwitchModeGet = wrap<&H::SwitchModeGet>;
	h->DeepSleepLedCTL = wrap<&H::DeepSleepLedCTL>;
	h->LedDiskLightCTL = wrap<&H::LedDiskLightCTL>;
	if (unique == "XU07" || unique == "XU11")
		h->LedAlarmCTL = wrap<&H::LedAlarmCTL>;
	if (f == Family::Chip575) {
		h->LedDiskStatCTL = unitLedDiskStatCtrlJmb575;
		h->LedDiskStatAllCTL = VEXOEBoxI2cLedDiskStatAllCTL;
	}
}

} // namespace

// The I2C bus needs no device-level slot: the unit handle's own command
// file is the 575's vexo_pm_i2c.
int unitLedDiskStatCtrlJmb575(VEXO_EBOX_HANDLE_T *h, int disk, int state)
{
	return VEXOEBoxI2cLedDiskStatCTL(h, disk, state);
}

} // namespace vexo::ebox

using namespace vexo::ebox;

extern "C" VEXO_API int VEXOEBoxUnitHandleGet(const char *sysfs_dir, VEXO_EBOX_HANDLE_T *handle,
					      unsigned int port) try {
	if (!sysfs_dir || !handle)
		return 0;
	std::string info = std::string(sysfs_dir) + "/vexo_pm_info";
	char deviceid[32] = {}, unique[32] = {};
	if (!VEXOEBoxHostInfoGet("deviceid", info.c_str(), deviceid, sizeof(deviceid)) ||
	    !VEXOEBoxHostInfoGet("Unique", info.c_str(), unique, sizeof(unique)))
		return 0;
	Family f = familyOf(deviceid);
	if (f == Family::None)
		return 0;
	std::memset(handle, 0, sizeof(*handle));
	handle->sem_id = -1;
	fillWrappers(handle, f, unique);
	handle->port = port;
	setPaths(handle, sysfs_dir, f);
	int sem = -1;
	if (!VEXOEBox3xxxSemGet(handle, &sem))
		vlog(LOG_ERR, "%s:%d init public member Semid fail\n", VEXO_AT);
	handle->sem_id = sem;
	auto *inner = static_cast<VEXO_EBOX_HANDLE_T *>(std::calloc(1, sizeof(VEXO_EBOX_HANDLE_T)));
	if (!inner) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return 0;
	}
	// A unit the device level does not know keeps an empty table: every
	// wrapper then answers 0.
	if (!VEXOEBoxHandleGet(sysfs_dir, inner, port)) {
		inner->sem_id = sem;
		setPaths(inner, sysfs_dir, f);
		inner->port = port;
	}
	handle->inner = inner;
	return 1;
}
VEXO_C_CATCH(0)
