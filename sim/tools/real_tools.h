// The distribution's drive tools (and its curl, for firmware transfers) and the appliance paths the library runs
// them by. vexosim build links each appliance path to vexosim-tools, which
// hands over to the program under the interposer.
#pragma once

namespace vexosim::tools {

struct RealTool {
	const char *name;      // what vexosim-tools answers to
	const char *program;   // the distribution's program
	const char *paths[2];  // where the appliance has it
};

inline constexpr RealTool kRealTools[] = {
	{"smartctl", "/usr/sbin/smartctl", {"/usr/bin/smartctl", nullptr}},
	{"hdparm", "/usr/sbin/hdparm", {"/usr/bin/hdparm", "/usr/sbin/hdparm"}},
	{"nvme", "/usr/sbin/nvme", {"/usr/sbin/nvme", nullptr}},
	{"sg_raw", "/usr/bin/sg_raw", {"/usr/vexo/bin/sg_raw", nullptr}},
	{"sg_sat_identify", "/usr/bin/sg_sat_identify", {"/usr/vexo/bin/sg_sat_identify", nullptr}},
	{"sg_logs", "/usr/bin/sg_logs", {"/usr/vexo/sbin/sg_logs", nullptr}},
	{"curl", "/usr/bin/curl", {"/bin/curl", nullptr}},
};

// The interposer's file name, beside vexosim-tools in the root.
inline constexpr const char *kInterposer = "libvexosim_interpose.so";

} // namespace vexosim::tools
