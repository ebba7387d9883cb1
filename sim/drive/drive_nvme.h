// The emulated drive as an NVMe controller: the admin commands the kernel
// passes through NVME_IOCTL_ADMIN_CMD, answered from the node's identity
// keys and its "nvme" object.
#pragma once

#include <linux/nvme_ioctl.h>
#include <string>

#include "drive_model.h"

namespace vexosim::drive {

// The command as the command log shows it ("NVME_ADMIN opcode=0x06 ...").
std::string nvmeLine(const nvme_admin_cmd *cmd);
// The fault name that applies to the command: "nvme_identify",
// "nvme_get_log_page", "nvme_self_test" or "nvme_admin".
const char *nvmeFaultName(const nvme_admin_cmd &cmd);
// Runs the command. Ok; Errno when the kernel itself would refuse it;
// Status (err = the NVMe status the ioctl returns) when the controller does.
Outcome nvmeAdmin(Drive &d, nvme_admin_cmd &cmd);
// What an injected abort means to an NVMe host: an Internal Error status.
Outcome nvmeFaulted(Outcome o);

} // namespace vexosim::drive
