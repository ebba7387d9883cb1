// Standby of the whole system: flush every disk that is up, one sync, then
// spin down those that are not down already. A disk that is spun down is
// never touched: a flush would wake it.
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>
#include <vexohw/disk_port.h>
#include <vexohw/disk_power.h>
#include <vexohw/disk_state.h>

#include "disk/disk_power.h"
#include "disk/disk_probe_name.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

using NameList = vexo::SzList;

// Marks a disk as being flushed for standby (1) or done (0).
bool markSyncing(const std::string &name, int value)
{
	if (vexo::disk::isNvmeName(name))
		return true;
	const std::string attr = vexo::disk::deviceAttr(name.c_str(), "vexo_standby_syncing");
	bool ok = false;
	if (vexo::sysroot::access(attr.c_str(), F_OK) != 0) {
		vlog(LOG_ERR, "%s:%d %s file isn't exsit", VEXO_AT, attr.c_str());
	} else {
		vexo::UniqueFd fd(vexo::sysroot::open(attr.c_str(), O_WRONLY | O_CLOEXEC));
		if (!fd) {
			vlog(LOG_ERR, "%s:%d Open %s fail", VEXO_AT, attr.c_str());
		} else {
			std::string text = std::to_string(value);
			ok = ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
		}
	}
	if (!ok)
		vlog(LOG_ERR, "%s:%d Failed to config vexo_standby_syncing: %s", VEXO_AT, name.c_str());
	return ok;
}

bool spunDown(const std::string &dev) { return VEXODiskIsSpindown(dev.c_str()) > 0; }

} // namespace

extern "C" VEXO_API int VEXODiskSetStandby(void) try {
	NameList disks;
	if (!disks.p)
		return 0;
	if (VEXODiskPortEnum(DISK_PORT_TYPE_INTERNAL, &disks.p) != 0) {
		vlog(LOG_ERR, "%s:%d Can't enum all internal disk devices", VEXO_AT);
		return 0;
	}
	if (VEXODiskPortEnum(DISK_PORT_TYPE_ESATA, &disks.p) != 0) {
		vlog(LOG_ERR, "%s:%d Can't enum all external sata devices", VEXO_AT);
		return 0;
	}
	std::vector<std::string> devs;
	for (int i = 0; i < disks.p->nItem; ++i)
		devs.push_back(std::string("/dev/") + VLIBCSzListGet(disks.p, i));
	// A failing mark stops the pass: the disks marked so far stay marked.
	for (const std::string &dev : devs) {
		const std::string name = vexo::disk::shortName(dev.c_str());
		if (!markSyncing(name, 1))
			return -1;
		if (!spunDown(dev) && VEXOIDiskFlushBuffer(dev.c_str()) != 0)
			vlog(LOG_ERR, "%s:%d VEXOIDiskFlushBuffer(%s) fail, but still issue standby", VEXO_AT, dev.c_str());
	}
	::sync();
	::sleep(1);
	for (const std::string &dev : devs)
		if (!markSyncing(vexo::disk::shortName(dev.c_str()), 0))
			return -1;
	int result = 0;
	for (const std::string &dev : devs)
		if (!spunDown(dev))
			result |= VEXOIDiskSetDiskStandby(dev.c_str());
	return result;
}
VEXO_C_CATCH(-1)
