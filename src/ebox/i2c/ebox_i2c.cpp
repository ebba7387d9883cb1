// The text protocol of vexo_pm_i2c and the XU11's operations on it. A line
// written into the file makes the unit driver do one I2C transfer (or a
// poll of the unit's controllers); the answer is read back from the same
// file as the key "i2c" (the section "i2c" for a poll).
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>

#include "ebox/ebox_private.h"
#include "frame/device.h"
#include "frame/err.h"

namespace vexo::ebox {
namespace {

constexpr int kLineMax = 128, kAnswerMax = 512;

// What the common frame of every operation decided.
enum class Gate { Fail, Busy, Go };

// Leaves an operation that may not run now with the answer it gives when
// refused, or the one it gives while the kernel handles the unit's errors.
#define EBOX_GATE(handle, what, refused, busy)                                                                     \
	do {                                                                                                       \
		const Gate g_ = gate(handle, what, __LINE__);                                                      \
		if (g_ != Gate::Go)                                                                                \
			return g_ == Gate::Busy ? (busy) : (refused);                                              \
	} while (0)

// The kernel's error handling first, then the model: only the XU11 speaks
// this protocol. `what` names the operation in the refusal.
Gate gate(VEXO_EBOX_HANDLE_T *h, const char *what, int line)
{
	if (!h) {
		VLIBCErrSetEx(VEXO_ERR_BAD_PARAM, VEXO_SRC, line);
		return Gate::Fail;
	}
	if (h->EHProcessGet) {
		int busy = 0;
		if (h->EHProcessGet(h, &busy) != 0) {
			VLIBCErrSetEx(VEXO_ERR_NOT_FOUND, VEXO_SRC, line);
			return Gate::Fail;
		}
		if (busy)
			return Gate::Busy;
	}
	char unique[32] = {};
	if (hostInfoDeviceUniqueGet(h, unique, sizeof(unique)) != 0 || std::strcmp(unique, "XU11") != 0) {
		vlog(LOG_ERR, "%s:%d EBox %s failed to get %s\n", VEXO_AT, unique, what);
		VLIBCErrSetEx(VEXO_ERR_UNSUPPORTED, VEXO_SRC, line);
		return Gate::Fail;
	}
	return Gate::Go;
}

// Wait and Signal around a transfer when the caller asks for the lock.
struct Locked {
	VEXO_EBOX_HANDLE_T *h;
	bool held = false;
	bool take(bool lock)
	{
		if (!lock)
			return true;
		if (!h->Wait || h->Wait(h) != 0) {
			vlog(LOG_ERR, "%s:%d Wait fail", VEXO_AT);
			return false;
		}
		held = true;
		return true;
	}
	~Locked()
	{
		if (held && (!h->Signal || h->Signal(h) != 0))
			vlog(LOG_ERR, "%s:%d Signal fail", VEXO_AT);
	}
};

bool validTransfer(VEXO_EBOX_HANDLE_T *h, VEXO_EBOX_I2C_T *t)
{
	if (!h || !t || t->length > VEXO_EBOX_I2C_DATA_MAX) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return false;
	}
	return true;
}

dev::Device openCommandFile(VEXO_EBOX_HANDLE_T *h)
{
	dev::Device f = dev::Device::open(h->gpio_path, O_WRONLY);
	if (!f) {
		vlog(LOG_ERR, "%s:%d Failed to open eunit sysfs", VEXO_AT);
		VEXO_ERR(VEXO_ERR_FOPEN);
	}
	return f;
}

int readReg(VEXO_EBOX_HANDLE_T *h, I2cReg r, unsigned char &out)
{
	VEXO_EBOX_I2C_T t{};
	t.address = r.address;
	t.reg = r.reg;
	t.length = 1;
	if (VEXOEBoxI2cRead(h, &t, 1) != 0)
		return -1;
	out = t.read_data[0];
	return 0;
}

int writeRegs(VEXO_EBOX_HANDLE_T *h, I2cReg r, const unsigned char *bytes, unsigned short n)
{
	VEXO_EBOX_I2C_T t{};
	t.address = r.address;
	t.reg = r.reg;
	t.length = n;
	std::memcpy(t.write_data, bytes, n);
	return VEXOEBoxI2cWrite(h, &t, 1);
}

// Read, change the bits under mask, write back: two transfers, each under
// the lock, as the unit's other users do it.
int updateReg(VEXO_EBOX_HANDLE_T *h, I2cReg r, unsigned char mask, unsigned char bits)
{
	unsigned char v;
	if (readReg(h, r, v) != 0)
		return -1;
	v = static_cast<unsigned char>((v & ~mask) | (bits & mask));
	return writeRegs(h, r, &v, 1);
}

// The fan tachometers of a poll, fan 1 first; stops at the first fan the
// unit does not report.
int pollFans(VEXO_EBOX_HANDLE_T *h, int *tach, int max)
{
	PVLIBSZHASH polled = nullptr;
	if (VEXOEBoxI2cPoll(h, &polled) != 0) {
		VLIBCSzHashFree(polled);
		return -1;
	}
	int n = 0;
	for (; n < max; ++n) {
		char key[32];
		std::snprintf(key, sizeof(key), "%s%d", "fanTach", n + 1);
		const char *v = VLIBCSzHashGetValue(polled, key);
		char *end = nullptr;
		if (!v)
			break;
		long rpm = std::strtol(v, &end, 0);
		if (end == v || *end || rpm < 0) {
			vlog(LOG_ERR, "%s:%d Failed to parse polled data", VEXO_AT);
			VLIBCSzHashFree(polled);
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		if (tach)
			tach[n] = static_cast<int>(rpm);
	}
	VLIBCSzHashFree(polled);
	return n;
}

// FAN_SPEED codes 1..9 to the PWM byte of the fan controller.
constexpr unsigned char kFanPwm[] = {0x00, 0x46, 0x46, 0x46, 0x8C, 0xFF, 0xFF, 0xFF, 0xFF};

} // namespace

int uniqueGet575(VEXO_EBOX_HANDLE_T *h, char *buf, int size) { return hostInfoDeviceUniqueGet(h, buf, size); }

int fanNumberGet575(VEXO_EBOX_HANDLE_T *h)
{
	EBOX_GATE(h, "Fan Number", -1, 0);
	return pollFans(h, nullptr, 8);
}

} // namespace vexo::ebox

using namespace vexo::ebox;

extern "C" VEXO_API int VEXOEBoxI2cWrite(VEXO_EBOX_HANDLE_T *handle, VEXO_EBOX_I2C_T *transfer, int lock) try {
	if (!validTransfer(handle, transfer))
		return -1;
	char line[kLineMax];
	int used = 0, n = 0;
	std::snprintf(line, sizeof(line), "%s 0x%02x 0x%02x %d %n", "Write", transfer->address, transfer->reg,
		      transfer->length, &n);
	used = n;
	for (int i = 0; i < transfer->length; ++i) {
		n = 0;
		std::snprintf(line + used, sizeof(line) - used, "0x%02x %n", transfer->write_data[i], &n);
		used += n;
	}
	Locked guard{handle};
	if (!guard.take(lock))
		return -1;
	vexo::dev::Device f = openCommandFile(handle);
	if (!f)
		return -1;
	if (f.write(line, static_cast<size_t>(used)) <= 0) {
		vlog(LOG_ERR, "%s:%d Failed to write \"%s\" to %s: errno=%d", VEXO_AT, line, handle->gpio_path, errno);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cRead(VEXO_EBOX_HANDLE_T *handle, VEXO_EBOX_I2C_T *transfer, int lock) try {
	if (!validTransfer(handle, transfer))
		return -1;
	char line[kLineMax];
	int len = std::snprintf(line, sizeof(line), "%s 0x%02x 0x%02x %d", "Read", transfer->address, transfer->reg,
				transfer->length);
	Locked guard{handle};
	if (!guard.take(lock))
		return -1;
	char answer[kAnswerMax] = {};
	{
		vexo::dev::Device f = openCommandFile(handle);
		if (!f)
			return -1;
		if (f.write(line, static_cast<size_t>(len)) != len) {
			vlog(LOG_ERR, "%s:%d Failed to write \"%s\" to %s: errno=%d", VEXO_AT, line, handle->gpio_path,
			     errno);
			VEXO_ERR(VEXO_ERR_WRITE);
			return -1;
		}
		// An empty answer is all a read of no bytes gets.
		int got = VLIBCFileGetKeyValue(handle->gpio_path, "i2c", answer, sizeof(answer), 0);
		if (got < 0 || (got == 0 && transfer->length > 0)) {
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
			return -1;
		}
	}
	const char *p = answer;
	for (int i = 0; i < transfer->length; ++i) {
		int used = 0;
		unsigned char byte = 0;
		if (std::sscanf(p, "%4hhx %n", &byte, &used) != 1 || used == 0) {
			vlog(LOG_ERR, "%s:%d I2C Read Data Failed\n", VEXO_AT);
			VEXO_ERR(VEXO_ERR_READ);
			return -1;
		}
		transfer->read_data[i] = byte;
		p += used;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cPoll(VEXO_EBOX_HANDLE_T *handle, PVLIBSZHASH *output) try {
	if (!handle || !output) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	Locked guard{handle};
	if (!guard.take(true))
		return -1;
	vexo::dev::Device f = openCommandFile(handle);
	if (!f)
		return -1;
	static const char kPoll[] = "Poll";
	if (f.write(kPoll, sizeof(kPoll) - 1) != sizeof(kPoll) - 1) {
		vlog(LOG_ERR, "%s:%d Failed to submit polling operation", VEXO_AT);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	if (VLIBCFileGetSection(handle->gpio_path, "i2c", output) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to parse polled data", VEXO_AT);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cFanCTL(VEXO_EBOX_HANDLE_T *handle, FAN_SPEED speed) try {
	EBOX_GATE(handle, "Fan Control Conf", 0, 1);
	if (speed < FAN_SPEED_STOP || speed > FAN_SPEED_FULL) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	unsigned char pwm = kFanPwm[speed - FAN_SPEED_STOP];
	if (writeRegs(handle, kRegFanPwm, &pwm, 1) != 0) {
		vlog(LOG_ERR, "%s:%d Write Fan PWM Failed\n", VEXO_AT);
		return 0;
	}
	return 1;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOEBoxI2cIsPowerOn(VEXO_EBOX_HANDLE_T *handle) try {
	EBOX_GATE(handle, "Power Status", -1, 1);
	unsigned char v;
	return readReg(handle, kRegPower, v) == 0 ? (v >> 2) & 1 : -1;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cPowerCTL(VEXO_EBOX_HANDLE_T *handle, int on) try {
	EBOX_GATE(handle, "Power Control", -1, 0);
	if (!handle->IsPowerOn) {
		VEXO_ERR(VEXO_ERR_UNSUPPORTED);
		return -1;
	}
	int state = handle->IsPowerOn(handle);
	if (state < 0 || state == (on ? 1 : 0)) {
		vlog(LOG_ERR, "%s:%d Do not need to operate power ctl", VEXO_AT);
		if (state < 0)
			VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	return updateReg(handle, kRegPower, 0x04, on ? 0x04 : 0x00);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cWhichFanErr(VEXO_EBOX_HANDLE_T *handle, int *errs, int count) try {
	EBOX_GATE(handle, "Fan Status", -1, 0);
	if (!errs || count < 1 || count > 8) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int tach[8] = {};
	int fans = pollFans(handle, tach, count);
	if (fans < 0)
		return -1;
	int any = 0;
	for (int i = 0; i < count; ++i) {
		errs[i] = i < fans && tach[i] == 0; // a fan that turns not at all has failed
		any |= errs[i];
	}
	return any;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cRedundantPowerStatGet(VEXO_EBOX_HANDLE_T *handle, int *states, int count) try {
	EBOX_GATE(handle, "Redundant Power Status", -1, 0);
	unsigned char v;
	if (!states || count < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (readReg(handle, kRegPsu, v) != 0)
		return -1;
	for (int i = 0; i < count; ++i)
		states[i] = i < 2 && ((v >> i) & 1);
	return 2;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cIsPowerBtnDisabled(VEXO_EBOX_HANDLE_T *handle) try {
	EBOX_GATE(handle, "Power Button Status", -1, 0);
	unsigned char v;
	return readReg(handle, kRegPowerBtn, v) == 0 ? v & 1 : -1;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cPowerBtnDisableSet(VEXO_EBOX_HANDLE_T *handle, int disable) try {
	EBOX_GATE(handle, "Power Button Control", -1, 0);
	return updateReg(handle, kRegPowerBtn, 0x01, disable ? 0x01 : 0x00);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cSwitchModeGet(VEXO_EBOX_HANDLE_T *handle, int *mode) try {
	EBOX_GATE(handle, "Switch Mode", -1, 0);
	unsigned char v;
	if (!mode) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (readReg(handle, kRegSwitchMode, v) != 0)
		return -1;
	*mode = v;
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cLedAlarmCTL(VEXO_EBOX_HANDLE_T *handle, int state) try {
	EBOX_GATE(handle, "Alarm LED Control", -1, 0);
	if (state < 0 || state > 3) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return updateReg(handle, kRegAlarmLed, 12, static_cast<unsigned char>(state << 2));
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cLedDiskStatCTL(VEXO_EBOX_HANDLE_T *handle, int disk, int state) try {
	EBOX_GATE(handle, "Disk LED Control", -1, 0);
	if (disk < 1 || disk > kXU11Bays || state < 0 || state > 0xFF) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	unsigned char v = static_cast<unsigned char>(state);
	return writeRegs(handle, {kRegDiskLed.address, static_cast<unsigned short>(kRegDiskLed.reg + disk - 1)}, &v, 1);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cLedDiskStatAllCTL(VEXO_EBOX_HANDLE_T *handle, int state) try {
	EBOX_GATE(handle, "Disk LED Control", -1, 0);
	if (state < 0 || state > 0xFF) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// One register per bay; a transfer carries at most 7 bytes.
	unsigned char v[VEXO_EBOX_I2C_DATA_MAX];
	std::memset(v, state, sizeof(v));
	for (int bay = 0; bay < kXU11Bays; bay += VEXO_EBOX_I2C_DATA_MAX) {
		int n = kXU11Bays - bay < VEXO_EBOX_I2C_DATA_MAX ? kXU11Bays - bay : VEXO_EBOX_I2C_DATA_MAX;
		I2cReg at{kRegDiskLed.address, static_cast<unsigned short>(kRegDiskLed.reg + bay)};
		if (writeRegs(handle, at, v, static_cast<unsigned short>(n)) != 0)
			return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOEBoxI2cLedDiskLightCTL(VEXO_EBOX_HANDLE_T *handle, int on) try {
	EBOX_GATE(handle, "Disk Light Control", -1, 0);
	unsigned char v = on ? 1 : 0;
	return writeRegs(handle, kRegDiskLight, &v, 1);
}
VEXO_C_CATCH(-1)
