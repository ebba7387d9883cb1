// The board control device's part in the fan loop.
#pragma once

#include <cstdint>
#include <vexohw/fan_table.h>

namespace vexo::fan {

inline constexpr int kCapSysSensor = 1;
inline constexpr int kCapCpuSensor = 4;
// Whether the board has the system (1) or CPU (4) sensor: it answers for it.
bool boardCapability(int capability);

int cpuTemperatureGet(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h);
int thermalTemperatureGet(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h);
// The group forms of SpeedChange: 0, or -1.
int peripheralSpeedChange(FAN_SPEED speed, VEXO_FAN_HANDLE_T *h);
int cpuFanSpeedChange(FAN_SPEED speed, VEXO_FAN_HANDLE_T *h);
int eboxSpeedChange(FAN_SPEED speed, VEXO_FAN_HANDLE_T *h);
// The board's fan register. 0, or -1.
int fanRegisterGet(uint16_t &value);

} // namespace vexo::fan
