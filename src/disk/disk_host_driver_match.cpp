#include "disk/disk_host_driver_match.h"

#include <cstring>
#include <string>
#include <vector>

#include "disk/disk_probe_name.h"
#include "frame/log.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexo::disk {

int hostDriverMatch(const char *path, const char *expected, const char *src, int line)
{
	std::string disk = physicalName(shortName(path));
	std::string pattern = "/sys/block/" + disk + "/device/../../scsi_host/host*/proc_name";
	std::vector<std::string> matches;
	if (disk.empty() || sysroot::glob(pattern.c_str(), matches) != 0 || matches.empty()) {
		vlog(LOG_ERR, "%s:%d Can't get sata chip name from pattern %s", src, line, pattern.c_str());
		return 0;
	}
	UniqueFile f(sysroot::fopen(matches[0].c_str(), "r"));
	if (!f) {
		vlog(LOG_ERR, "%s:%d can't open %s", src, line, matches[0].c_str());
		return 0;
	}
	char text[64] = {};
	if (!std::fgets(text, sizeof(text), f.get()))
		return 0;
	return std::strcmp(text, expected) == 0 ? 1 : 0;
}

} // namespace vexo::disk
