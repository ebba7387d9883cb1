// Expansion units inside the library: chip families, the GPIO command word
// of the 3xxx and 9705 families, the forms that fill the ops table.
//
// The GPIO word. Writing "0x%08x\n" to vexo_pm_gpio hands one command word
// to the port multiplier, which acts on it; reading the file then shows
// "0x%08x\n", its 32 input lines. A command word is the operation code in
// bits 8-15 and its argument in bits 0-7; the 9705 family also sets bit 31
// (its extended register set). The input lines:
//
//   bit 0        the unit is powered
//   bits 1-4     fan 1..4 failed
//   bits 5-6     supply 1, 2 good
//   bit 7        power button disabled
//   bits 8-9     switch mode
//   bits 10-12   fan count
//   bits 16-31   rpm of the fan named by the last kOpTach
#pragma once

#include <string>
#include <vexohw/ebox.h>

namespace vexo::ebox {

enum class Family { None, Chip3xxx, Chip9705, Chip575 };
Family familyOf(const char *deviceid);

// Operation codes of the GPIO word, shared by both GPIO families.
enum GpioOp : int {
	kOpStatus = 0x00,
	kOpFan = 0x01,	     // argument: FAN_SPEED code 1..9
	kOpTach = 0x02,	     // argument: fan from 1
	kOpPower = 0x03,     // 1 on, 0 off
	kOpLedReady = 0x04,  // 0 off, 1 on, 2 blink
	kOpLedDisk = 0x05,   // disk (from 1) << 4 | state
	kOpLedAll = 0x06,    // state
	kOpPowerBtn = 0x07,  // 1 disables the button
	kOpDeepSleepLed = 0x08,
	kOpLedLight = 0x09,
	kOpLedAlarm = 0x0A,
	kOpBuzzerMute = 0x0B,
	kOpLedDiskXU07 = 0x0C, // the XU07's own LED bank: (disk - 1) << 4 | state
	kOpPowerBtn3826 = 0x0D,
	kOpStatus3826 = 0x0E,
};
constexpr unsigned kGpioPower = 1u << 0, kGpioFanErrShift = 1, kGpioPsuShift = 5, kGpioBtnDisabled = 1u << 7,
		   kGpioModeShift = 8, kGpioFanCountShift = 10, kGpioRpmShift = 16;
constexpr unsigned kGpio9705Tag = 1u << 31;

// The I2C registers of an XU11.
struct I2cReg {
	unsigned short address, reg;
};
constexpr I2cReg kRegFanPwm{0x2E, 0x31};
constexpr I2cReg kRegPower{0x40, 0x05};	    // bit 2
constexpr I2cReg kRegAlarmLed{0x40, 0x06};    // bits under mask 12
constexpr I2cReg kRegPowerLed{0x40, 0x07};
constexpr I2cReg kRegPsu{0x40, 0x08};	    // bit 0, 1: supply 1, 2 good
constexpr I2cReg kRegPowerBtn{0x40, 0x09};    // bit 0: button disabled
constexpr I2cReg kRegSwitchMode{0x40, 0x0A};
constexpr I2cReg kRegDiskLed{0x41, 0x10};	    // one byte per bay from here
constexpr I2cReg kRegDiskLight{0x41, 0x20};   // bit 0
constexpr int kXU11Bays = 12;

// Slot forms (ebox_gpio.cpp, ebox_common.cpp, ebox_3xxx_sem_get.cpp).
void fill3xxx(VEXO_EBOX_HANDLE_T *h, bool top, const std::string &unique);
void fill9705(VEXO_EBOX_HANDLE_T *h, bool top, const std::string &unique);
void fillCommon(VEXO_EBOX_HANDLE_T *h);
int vendorNameGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
int deviceIdGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
int diskPathGet(VEXO_EBOX_HANDLE_T *h, int disk, char *buf, int size);
int ehProcessGet(VEXO_EBOX_HANDLE_T *h, int *busy);
int isPmPresent(VEXO_EBOX_HANDLE_T *h);
int maxDiskGet(VEXO_EBOX_HANDLE_T *h);
int semWait(VEXO_EBOX_HANDLE_T *h);
int semSignal(VEXO_EBOX_HANDLE_T *h);
int pmInfoGet(VEXO_EBOX_HANDLE_T *h, const char *key, char *buf, int size);
// The unit's Unique from its host info (VEXOEBoxHostInfoDeviceUniqueGet): 0, or -1.
int hostInfoDeviceUniqueGet(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
int uniqueGet575(VEXO_EBOX_HANDLE_T *h, char *buf, int size);
int fanNumberGet575(VEXO_EBOX_HANDLE_T *h);
// Disk status LED of a unit-level 575 handle, straight to the bus.
int unitLedDiskStatCtrlJmb575(VEXO_EBOX_HANDLE_T *h, int disk, int state);
// The sysfs directory's files into the handle.
void setPaths(VEXO_EBOX_HANDLE_T *h, const char *dir, Family f);

} // namespace vexo::ebox
