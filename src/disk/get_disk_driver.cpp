// Which kernel driver serves the SCSI host of a disk.
#include <climits>
#include <cstring>
#include <string>
#include <vexohw/disk_probe.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"

namespace {

// Table order is the driver number.
constexpr const char *kDrivers[] = {"ahci", "mpt2sas", "mpt3sas", "mv14xx"};

} // namespace

extern "C" {

VEXO_API int VEXOGetDiskDriver(const char *path)
try {
	std::string disk = vexo::disk::physicalName(vexo::disk::shortName(path));
	if (disk.empty()) {
		vlog(LOG_ERR, "%s:%d Failed to get phyical disk of device %s", VEXO_AT, path ? path : "(null)");
		return VEXO_DISK_DRIVER_OTHER;
	}
	char real[PATH_MAX];
	std::string block = "/sys/block/" + disk;
	if (!vexo::sysroot::realpath(block.c_str(), real))
		return VEXO_DISK_DRIVER_OTHER;

	// ".../ata1/host0/target0:0:0/..." -> ".../ata1", "host0"
	std::string rp = real;
	std::size_t pos = 0, host = std::string::npos;
	while ((pos = rp.find('/', pos)) != std::string::npos) {
		++pos;
		if (rp.compare(pos, 4, "host") == 0) {
			host = pos;
			break;
		}
	}
	if (host == std::string::npos)
		return VEXO_DISK_DRIVER_OTHER;
	std::size_t end = rp.find('/', host);
	std::string hostName = rp.substr(host, end == std::string::npos ? std::string::npos : end - host);
	std::string file = rp.substr(0, host - 1) + "/" + hostName + "/scsi_host/" + hostName + "/proc_name";

	std::string line;
	if (!vexo::readLine(file, line, 64, true))
		return VEXO_DISK_DRIVER_OTHER;
	std::string_view name = vexo::trimSpace(line);
	if (name.empty())
		return VEXO_DISK_DRIVER_OTHER;
	// Over the text's own length: a name cut short still matches.
	for (int i = 0; i < static_cast<int>(sizeof(kDrivers) / sizeof(kDrivers[0])); ++i)
		if (std::strncmp(name.data(), kDrivers[i], name.size()) == 0)
			return i;
	return VEXO_DISK_DRIVER_OTHER;
} VEXO_C_CATCH(VEXO_DISK_DRIVER_OTHER)

} // extern "C"
