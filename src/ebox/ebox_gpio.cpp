// The forms of the GPIO-word families (3xxx and 9705): every operation is
// one exchange through vexo_pm_gpio under the unit's semaphore, a command
// word written and the input lines read back (layout in ebox_private.h).
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>

#include "ebox/ebox_private.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/path_read.h"

namespace vexo::ebox {
namespace {

int encode3xxx(VEXO_EBOX_HANDLE_T *h, int op, int arg, unsigned *word)
{
	if (!h || !word || op < 0 || op > 0xFF || arg < 0 || arg > 0xFF) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*word = static_cast<unsigned>(op) << 8 | static_cast<unsigned>(arg);
	return 0;
}

int encode9705(VEXO_EBOX_HANDLE_T *h, int op, int arg, unsigned *word)
{
	if (encode3xxx(h, op, arg, word) != 0)
		return -1;
	*word |= kGpio9705Tag;
	return 0;
}

int writeGpio(VEXO_EBOX_HANDLE_T *h, unsigned word)
{
	if (!h) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	dev::Device f = dev::Device::open(h->gpio_path, O_WRONLY);
	if (!f) {
		vlog(LOG_ERR, "%s:%d Failed to open %s: errno=%d", VEXO_AT, h->gpio_path, errno);
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	char line[16];
	int n = std::snprintf(line, sizeof(line), "0x%08x\n", word);
	if (f.write(line, static_cast<size_t>(n)) != n) {
		vlog(LOG_ERR, "%s:%d Failed to write 0x%08x to %s: errno=%d", VEXO_AT, word, h->gpio_path, errno);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
}

int readGpio(VEXO_EBOX_HANDLE_T *h, unsigned *gpio)
{
	if (!h || !gpio) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string text;
	char *end = nullptr;
	if (!readString(h->gpio_path, text) || text.empty()) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	errno = 0;
	unsigned long v = std::strtoul(text.c_str(), &end, 16);
	if (errno || *end || v > 0xFFFFFFFFul) {
		vlog(LOG_ERR, "%s:%d Bad GPIO word \"%s\" in %s", VEXO_AT, text.c_str(), h->gpio_path);
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*gpio = static_cast<unsigned>(v);
	return 0;
}

// One command and its answer, atomic against every other user of the unit.
int exchange(VEXO_EBOX_HANDLE_T *h, int op, int arg, unsigned *in = nullptr)
{
	if (!h || !h->EncodeCmd) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	unsigned word = 0, lines = 0;
	if (h->EncodeCmd(h, op, arg, &word) != 0)
		return -1;
	if (semWait(h) != 0)
		return -1;
	int rc = writeGpio(h, word) == 0 && readGpio(h, &lines) == 0 ? 0 : -1;
	if (semSignal(h) != 0)
		rc = -1;
	if (rc == 0 && in)
		*in = lines;
	return rc;
}

int isPowerOn(VEXO_EBOX_HANDLE_T *h)
{
	unsigned in;
	return exchange(h, kOpStatus, 0, &in) ? -1 : (in & kGpioPower) != 0;
}

int fanCount(unsigned in) { return static_cast<int>((in >> kGpioFanCountShift) & 7u); }

int isFanErr(VEXO_EBOX_HANDLE_T *h, int *errs, int count)
{
	unsigned in;
	if (!errs || count < 1 || exchange(h, kOpStatus, 0, &in))
		return -1;
	errs[0] = ((in >> kGpioFanErrShift) & 0xFu) != 0;
	return errs[0];
}

int whichFanErr(VEXO_EBOX_HANDLE_T *h, int *errs, int count)
{
	unsigned in;
	if (!errs || count < 1 || exchange(h, kOpStatus, 0, &in))
		return -1;
	int any = 0;
	for (int i = 0; i < count; ++i) {
		errs[i] = i < 4 && i < fanCount(in) && (in >> (kGpioFanErrShift + i) & 1u);
		any |= errs[i];
	}
	return any;
}

int fanSpeedGet(VEXO_EBOX_HANDLE_T *h, int fan, int *rpm)
{
	unsigned in;
	if (!rpm || fan < 1 || fan > 7 || exchange(h, kOpTach, fan, &in))
		return -1;
	*rpm = static_cast<int>(in >> kGpioRpmShift);
	return 0;
}

int fanNumberGet(VEXO_EBOX_HANDLE_T *h)
{
	unsigned in;
	return exchange(h, kOpStatus, 0, &in) ? -1 : fanCount(in);
}

int fanCtl(VEXO_EBOX_HANDLE_T *h, FAN_SPEED speed)
{
	if (speed < FAN_SPEED_STOP || speed > FAN_SPEED_FULL) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	return exchange(h, kOpFan, speed) == 0 ? 1 : 0;
}

int uniqueGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size) { return hostInfoDeviceUniqueGet(h, buf, size); }
int powerCtl(VEXO_EBOX_HANDLE_T *h, int on) { return exchange(h, kOpPower, on ? 1 : 0); }
int ledReady(VEXO_EBOX_HANDLE_T *h, int state) { return exchange(h, kOpLedReady, state); }

int ledDisk(VEXO_EBOX_HANDLE_T *h, int disk, int state)
{
	if (disk < 1 || disk > 15 || state < 0 || state > 15) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return exchange(h, kOpLedDisk, disk << 4 | state);
}

int ledDiskXU07(VEXO_EBOX_HANDLE_T *h, int disk, int state)
{
	if (disk < 1 || disk > 16 || state < 0 || state > 15) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return exchange(h, kOpLedDiskXU07, (disk - 1) << 4 | state);
}

int ledAll(VEXO_EBOX_HANDLE_T *h, int state) { return exchange(h, kOpLedAll, state); }
int deepSleepLed(VEXO_EBOX_HANDLE_T *h, int on) { return exchange(h, kOpDeepSleepLed, on ? 1 : 0); }
int ledLight(VEXO_EBOX_HANDLE_T *h, int on) { return exchange(h, kOpLedLight, on ? 1 : 0); }
int ledAlarm(VEXO_EBOX_HANDLE_T *h, int state) { return exchange(h, kOpLedAlarm, state); }
int buzzerMute(VEXO_EBOX_HANDLE_T *h) { return exchange(h, kOpBuzzerMute, 1); }

int redundantPower(VEXO_EBOX_HANDLE_T *h, int *states, int count)
{
	unsigned in;
	if (!states || count < 1 || exchange(h, kOpStatus, 0, &in))
		return -1;
	for (int i = 0; i < count; ++i)
		states[i] = i < 2 && (in >> (kGpioPsuShift + i) & 1u);
	return 2;
}

template <int StatusOp, int ButtonOp>
struct Button {
	static int set(VEXO_EBOX_HANDLE_T *h, int disable) { return exchange(h, ButtonOp, disable ? 1 : 0); }
	static int get(VEXO_EBOX_HANDLE_T *h)
	{
		unsigned in;
		return exchange(h, StatusOp, 0, &in) ? -1 : (in & kGpioBtnDisabled) != 0;
	}
	static int mode(VEXO_EBOX_HANDLE_T *h, int *mode)
	{
		unsigned in;
		if (!mode || exchange(h, StatusOp, 0, &in))
			return -1;
		*mode = static_cast<int>(in >> kGpioModeShift & 3u);
		return 0;
	}
};
using Button9705 = Button<kOpStatus, kOpPowerBtn>;
using Button3826 = Button<kOpStatus3826, kOpPowerBtn3826>;

bool isOneOf(const std::string &u, std::initializer_list<const char *> models)
{
	for (const char *m : models)
		if (u == m)
			return true;
	return false;
}

void fillGpioCore(VEXO_EBOX_HANDLE_T *h)
{
	h->ReadGpio = readGpio;
	h->WriteGpio = writeGpio;
	h->IsPowerOn = isPowerOn;
	h->UniqueGet = uniqueGet;
	h->LedDiskStatCTL = ledDisk;
	h->LedDiskStatAllCTL = ledAll;
}

void fillGpioTop(VEXO_EBOX_HANDLE_T *h)
{
	h->FanSpeedGet = fanSpeedGet;
	h->PowerCTL = powerCtl;
	h->LedRaidReadyCTL = ledReady;
	h->FanCTL = fanCtl;
	h->FanNumberGet = fanNumberGet;
}

} // namespace

void fill3xxx(VEXO_EBOX_HANDLE_T *h, bool top, const std::string &u)
{
	h->EncodeCmd = encode3xxx;
	fillGpioCore(h);
	if (!top)
		return;
	fillGpioTop(h);
	h->FanErr = isOneOf(u, {"XU05", "XU04", "XU06", "XU01", "XU03"}) ? whichFanErr : isFanErr;
	if (isOneOf(u, {"XU01", "XU02", "XU03"})) {
		h->PowerBtnDisableSet = Button3826::set;
		h->IsPowerBtnDisabled = Button3826::get;
		h->SwitchModeGet = Button3826::mode;
	}
	if (u == "XU04") {
		h->RedundantPowerStatGet = redundantPower;
		h->PSUBuzzerMute = buzzerMute;
	}
}

void fill9705(VEXO_EBOX_HANDLE_T *h, bool top, const std::string &u)
{
	h->EncodeCmd = encode9705;
	fillGpioCore(h);
	h->LedDiskLightCTL = ledLight;
	if (top) {
		fillGpioTop(h);
		h->FanErr = whichFanErr;
		h->PowerBtnDisableSet = Button9705::set;
		h->IsPowerBtnDisabled = Button9705::get;
		h->SwitchModeGet = Button9705::mode;
		h->DeepSleepLedCTL = deepSleepLed;
		if (isOneOf(u, {"XU08", "XU09"})) {
			h->RedundantPowerStatGet = redundantPower;
			h->PSUBuzzerMute = buzzerMute;
		}
	}
	if (u == "XU07") {
		h->LedDiskStatCTL = ledDiskXU07;
		h->LedAlarmCTL = ledAlarm;
	}
}

} // namespace vexo::ebox
