// External SATA ports from esataportcfg.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>

#include "external/port_map.h"
#include "frame/err.h"
#include "frame/text.h"

namespace {

// The third copy of esataportcfg: the port names, read once per process.
struct EsataPorts {
	std::mutex lock;
	bool loaded = false;
	std::vector<std::string> names;
};

EsataPorts &ports()
{
	static EsataPorts p;
	return p;
}

std::vector<std::string> esataNames()
{
	auto &p = ports();
	std::lock_guard<std::mutex> guard(p.lock);
	if (!p.loaded) {
		char value[64] = {};
		if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "esataportcfg", value, sizeof(value), 0) > 0) {
			unsigned long long mask = std::strtoull(value, nullptr, 16);
			for (int i = 0; i < 26; ++i)
				if (vexo::external::bitSet(mask, i))
					p.names.push_back(std::string("sd") + static_cast<char>('a' + i));
		}
		p.loaded = true;
	}
	return p.names;
}

} // namespace

namespace vexo::external {

void resetEsataPorts()
{
	auto &p = ports();
	std::lock_guard<std::mutex> guard(p.lock);
	p.loaded = false;
	p.names.clear();
}

} // namespace vexo::external

extern "C" {

VEXO_API int VEXOExternalEsataPortCount(void)
try {
	if (VLIBCSupportSAS())
		return 0;
	return static_cast<int>(esataNames().size());
} VEXO_C_CATCH(0)

VEXO_API int VEXOExternalEsataPortGet(int index, char *name, int size)
try {
	if (index <= 0 || !name || size <= 0) {
		vlog(LOG_ERR,
		     "%s:%d bad parameter, szEsataName should not be NULL or zero size or esataIdx must larger than zero",
		     VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VLIBCSupportSAS())
		return -1;
	std::vector<std::string> names = esataNames();
	if (index > static_cast<int>(names.size()) || !vexo::copyText(name, size, names[index - 1])) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXOExternalEsataPortIndexGet(const char *path)
try {
	if (!path || VLIBCSupportSAS())
		return -1;
	char disk[32];
	if (DiskPartitionNumRemove(VEXODiskDevPrefixSkip(path), disk, sizeof(disk)) != 0)
		return -1;
	std::vector<std::string> names = esataNames();
	for (size_t i = 0; i < names.size(); ++i)
		if (names[i] == disk)
			return static_cast<int>(i) + 1;
	return -1;
} VEXO_C_CATCH(-1)

} // extern "C"
