// The device name behind a kernel ATA link text ("ata5", "ata5.01", "5.01").
#include <cstdio>
#include <cstring>
#include <string>

#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>

#include "frame/err.h"
#include "frame/text.h"
#include "frame/path_read.h"

namespace {

// Units whose bays are wired in reverse order of their port numbers.
constexpr const char *kReversedBayUnits[] = {"XU02", "XU03"};
constexpr const char kReversedBays[] = "dcba";

} // namespace

extern "C" {

VEXO_API int VEXODiskGetDevnamebyAtaPort(char *name, int size, const char *hostText)
try {
	if (!name || size <= 0 || !hostText) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const char *text = std::strncmp(hostText, "ata", 3) == 0 ? hostText + 3 : hostText;
	char hostPart[16] = {};
	char portPart[16] = {};
	int fields = std::sscanf(text, "%15[^.].%15s", hostPart, portPart);
	int ata = 0;
	if (fields < 1 || std::sscanf(hostPart, "%d", &ata) != 1 || ata <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string host = "host" + std::to_string(ata - 1);
	std::string trans = "/sys/class/scsi_host/" + host + "/vexo_diskname_trans";
	std::string result;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!vexo::readLine(trans, result, 32, false, &why) || result.empty()) {
		VEXO_ERR(why == vexo::ReadFail::Open ? VEXO_ERR_FOPEN : VEXO_ERR_READ);
		return -1;
	}
	if (fields == 2) {
		int port = -1;
		if (std::sscanf(portPart, "%d", &port) != 1 || port < 0 || port > 25) {
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		// The whole info text names the unit model.
		std::string infoPath = "/sys/class/scsi_host/" + host + "/vexo_pm_info";
		std::string body;
		if (!vexo::readString(infoPath, body, &why, 1 << 16)) {
			if (why == vexo::ReadFail::Open) {
				VEXO_ERR(VEXO_ERR_FOPEN);
				return -1;
			}
			body.clear(); // empty or unreadable: no unit named
		}
		bool reversed = false;
		for (const char *unit : kReversedBayUnits)
			reversed = reversed || body.find(unit) != std::string::npos;
		if (reversed) {
			if (port >= static_cast<int>(sizeof(kReversedBays) - 1)) {
				VEXO_ERR(VEXO_ERR_READ);
				return -1;
			}
			result += kReversedBays[port];
		} else {
			result += static_cast<char>('a' + port);
		}
	}
	if (!vexo::copyText(name, size, result)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
