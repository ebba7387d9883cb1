// vexo_vcemd_connector -signal N: hands notification N to the platform
// daemon over its connector, and exits 0 when the daemon took it.
#include <cstdio>
#include <cstring>
#include <string>
#include <vexohw/vcemd.h>

#include "appliance_tools.h"
#include "frame/path_read.h"
#include "sim/vcemd/vcemd_sim.h"

namespace vexosim::tools {

int vcemdConnector(int argc, char **argv)
{
	int32_t number = 0;
	if (argc != 3 || std::strcmp(argv[1], "-signal") != 0 || !vexo::parseS32(argv[2], number)) {
		std::fprintf(stderr, "usage: vexo_vcemd_connector -signal NUMBER\n");
		return 2;
	}
	std::string text = std::to_string(number);
	Message request{}, reply{};
	if (VEXOVcemdCopy2MsgIn(vexosim::vcemd::kNotifyCommand, &request, text.c_str(), static_cast<int>(text.size()),
				1) != 0 ||
	    VEXOVcemdConnectorClient(&request, &reply) != 0) {
		std::fprintf(stderr, "vexo_vcemd_connector: vcemd did not take signal %d\n", number);
		return 1;
	}
	return reply.result == 0 ? 0 : 1;
}

} // namespace vexosim::tools
