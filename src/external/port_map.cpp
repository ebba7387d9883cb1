// Reading and caching the port masks.
#include <cstdlib>

#include "external/port_map.h"
#include "frame/err.h"

namespace vexo::external {

namespace {

constexpr const char *kDefaults = "/etc.defaults/vexoinfo.conf";

uint64_t readMask(const char *key, bool *found)
{
	char value[64] = {};
	*found = VLIBCFileGetKeyValue(kDefaults, key, value, sizeof(value), 0) > 0;
	return *found ? std::strtoull(value, nullptr, 16) : 0;
}

} // namespace

int PortMap::load()
{
	if (usb() != 0)
		return 0;
	bool found = false;
	uint64_t usb = readMask("usbportcfg", &found);
	if (!found) {
		vlog(LOG_ERR, "%s:%d Get %s key from %s Error", VEXO_AT, "usbportcfg", kDefaults);
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	esata_.store(readMask("esataportcfg", &found), std::memory_order_relaxed);
	internal_.store(readMask("internalportcfg", &found), std::memory_order_relaxed);
	cache_.store(readMask("cacheportcfg", &found), std::memory_order_relaxed);
	usb_.store(usb, std::memory_order_relaxed);
	return 0;
}

void PortMap::reset()
{
	usb_ = esata_ = internal_ = cache_ = 0;
}

PortMap &portCheckMap()
{
	static PortMap m;
	return m;
}

PortMap &portEnumAllMap()
{
	static PortMap m;
	return m;
}

void resetPortMaps()
{
	portCheckMap().reset();
	portEnumAllMap().reset();
	resetEsataPorts();
}

} // namespace vexo::external
