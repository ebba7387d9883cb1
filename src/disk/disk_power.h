// What the power files share: the disk's kernel attributes and the power
// state question asked without waking the drive.
#pragma once

#include <string>

namespace vexo::disk {

// The power state as the drive's command interface gives it: CHECK POWER
// MODE's count (0 standby, 0x80 idle, 0xFF active) on the ATA interfaces,
// TEST UNIT READY's status (non-zero: stopped) on the SAS one. 0, or -1.
// Neither command spins a drive up.
int checkPower(const char *path, int *state, bool *sas = nullptr);

enum class PowerMode { Active, Idle, Standby, Unknown };
// The same question, read as a mode. NVMe disks: Active.
PowerMode powerMode(const char *path);
const char *powerModeName(PowerMode m);

// /sys/block/<name>/device/<attr> of a disk path or name.
std::string deviceAttr(const char *path, const char *attr);

} // namespace vexo::disk
