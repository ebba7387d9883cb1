// vexo_drive_bundle stand-in: the appliance's firmware tool, as far as the
// library runs it: "--upgrade-firmware --start-by-config-and-prepare-summary
// MODE" runs the plan in force with the library's own run. The children that
// flash the drives are this program's, so their command line is the one the
// library looks for when it asks whether a drive is being upgraded.
#include <cstdio>
#include <cstring>
#include <vexohw/drive_bundle.h>

#include "appliance_tools.h"

namespace vexosim::tools {

int vexoDriveBundle(int argc, char **argv)
{
	if (argc != 4 || std::strcmp(argv[1], "--upgrade-firmware") != 0 ||
	    std::strcmp(argv[2], "--start-by-config-and-prepare-summary") != 0) {
		std::fprintf(stderr, "usage: vexo_drive_bundle --upgrade-firmware --start-by-config-and-prepare-summary "
				     "update-status|not-update-status|at-early-bootup\n");
		return 2;
	}
	return DBFWUpgradeByConfigAndPrepareSummary(argv[3]) == 0 ? 0 : 1;
}

} // namespace vexosim::tools
