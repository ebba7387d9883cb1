// Temperature sources of the fan tables: the debug override files, the
// hottest disk of a list (from the drives or the shared disk resource), the
// disk, cache and expansion unit sources with their shutdown tuning, the
// network adapters' and SAS hosts' sysfs files.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <string>
#include <vector>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/fan_table.h>
#include <vexohw/smart_temperature.h>

#include "fan/fan_private.h"
#include "fan/fan_sources.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/sysroot.h"

namespace vexo::fan {
namespace {

constexpr int kDebugLineMax = 64;
constexpr int kNetMax = 256;
constexpr int kSasHostMax = 64;

// The list's own name rule: the first entry says whether names carry /dev/.
struct DiskName {
	std::string name, path;
};
std::vector<DiskName> diskNames(PVLIBSZLIST list)
{
	std::vector<DiskName> out;
	const char *first = VLIBCSzListGet(list, 0);
	bool withDev = first && std::strncmp(first, "/dev/", 5) == 0;
	for (int i = 0; i < list->nItem; ++i) {
		const char *e = VLIBCSzListGet(list, i);
		if (!e)
			continue;
		std::string name = withDev ? (std::strlen(e) > 5 ? e + 5 : "") : e;
		if (name.empty() || name.find('/') != std::string::npos)
			continue;
		out.push_back({name, "/dev/" + name});
	}
	return out;
}

bool present(const std::string &name)
{
	return vexo::sysroot::access(("/sys/block/" + name).c_str(), F_OK) == 0;
}

void setName(VEXO_FAN_READING_T *r, const char *name)
{
	std::snprintf(r->name, sizeof r->name, "%s", name);
}

// A float sysfs value truncated to whole degrees.
enum class Float { Ok, NoFile, Bad };
Float readFloat(const std::string &path, double &out)
{
	std::string text;
	vexo::ReadFail why{};
	if (!vexo::readString(path, text, &why))
		return Float::NoFile;
	std::string_view v = vexo::trimSpace(text);
	std::string s(v);
	char *end = nullptr;
	errno = 0;
	out = std::strtod(s.c_str(), &end);
	// Whole degrees must fit an int: nan, inf and absurd figures are damage.
	return (s.empty() || *end || errno || !std::isfinite(out) || std::fabs(out) > 1e6) ? Float::Bad : Float::Ok;
}

// A list from an enumeration, freed on scope exit; null when it failed.
struct EnumList {
	PVLIBSZLIST list = nullptr;
	bool ok = false;
	EnumList(int (*fn)(PVLIBSZLIST *))
	{
		list = VLIBCSzListAlloc(16);
		ok = list && fn(&list) == 0;
	}
	~EnumList() { VLIBCSzListFree(list); }
	EnumList(const EnumList &) = delete;
	EnumList &operator=(const EnumList &) = delete;
	PVLIBSZLIST get() const { return ok ? list : nullptr; }
};

bool sleeping(const VEXO_FAN_HANDLE_T *h) { return h && h->hibernating; }

} // namespace

std::string debugFile(int type, const VEXO_FAN_HANDLE_T *h)
{
	switch (type) {
	case FAN_TABLE_THERMAL: return "/tmp/systmp.txt";
	case FAN_TABLE_DISK: return "/tmp/disktmp.txt";
	case FAN_TABLE_CPU: return "/tmp/cputmp.txt";
	case FAN_TABLE_M2: return "/tmp/m2tmp.txt";
	case FAN_TABLE_SAS: return "/tmp/sastmp.txt";
	case FAN_TABLE_U2: return "/tmp/u2tmp.txt";
	case FAN_TABLE_SYSDISK: return "/tmp/sysdisktmp.txt";
	case FAN_TABLE_XNIC08: case FAN_TABLE_XNIC09: case FAN_TABLE_XNIC10: return "/tmp/xnic08tmp.txt";
	case FAN_TABLE_XNIC06: case FAN_TABLE_XNIC07: return "/tmp/xnic06tmp.txt";
	case FAN_TABLE_EBOX_DISK: {
		const char *first = h && h->ebox ? VLIBCSzListGet(h->ebox->disks, 0) : nullptr;
		if (!first)
			return "";
		if (std::strncmp(first, "/dev/", 5) == 0)
			first += 5;
		return "/tmp/ebox_" + std::string(first).substr(0, 3) + ".txt";
	}
	default: {
		const TableTypeRow *r = tableTypeRow(type);
		return r && r->device && r->shortName ? std::string("/tmp/") + r->shortName + "tmp.txt" : "";
	}
	}
}

int debugSource(int type)
{
	switch (type) {
	case FAN_TABLE_THERMAL: return FAN_SOURCE_THERMAL;
	case FAN_TABLE_DISK: return FAN_SOURCE_DISK;
	case FAN_TABLE_CPU: return FAN_SOURCE_CPU;
	case FAN_TABLE_SYSDISK: case FAN_TABLE_M2: case FAN_TABLE_U2: return FAN_SOURCE_SSD;
	case FAN_TABLE_EBOX_DISK: return FAN_SOURCE_EBOX;
	case FAN_TABLE_SAS: return FAN_SOURCE_SAS;
	default: return VEXOFanIsNicFanTable(type) ? FAN_SOURCE_EXTERNAL_NIC : FAN_SOURCE_NONE;
	}
}

int debugRead(int type, VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h, int *source)
{
	std::string path = debugFile(type, h);
	int on = !path.empty() && VEXOFanIsTemperatureDebugON(reading, path.c_str());
	// An adapter without its own file may still be set by the shared one.
	if (!on && VEXOFanTableNicSSIDGet(type, nullptr, nullptr) == 0)
		on = VEXOFanIsTemperatureDebugON(reading, "/tmp/nictmp.txt");
	if (on && source)
		*source = debugSource(type);
	return on;
}

int nicRead(int type, VEXO_FAN_READING_T *reading)
{
	int vendor = 0, device = 0;
	if (VEXOFanTableNicSSIDGet(type, &vendor, &device) != 0)
		return FAN_SOURCE_NONE;
	DIR *dir = vexo::sysroot::opendir("/sys/class/net");
	if (!dir)
		return FAN_SOURCE_NONE;
	std::vector<std::string> ifaces;
	while (dirent *e = readdir(dir))
		if (e->d_name[0] != '.' && std::strcmp(e->d_name, "lo") != 0 && (int)ifaces.size() < kNetMax)
			ifaces.push_back(e->d_name);
	closedir(dir);
	bool taken = false;
	for (const std::string &ifc : ifaces) {
		std::string dev = "/sys/class/net/" + ifc + "/device/";
		int64_t v = 0, d = 0;
		std::string tv, td;
		if (!vexo::readString(dev + "subsystem_vendor", tv) || !vexo::readString(dev + "subsystem_device", td))
			continue;
		v = std::strtol(tv.c_str(), nullptr, 16);
		d = std::strtol(td.c_str(), nullptr, 16);
		if (v != vendor || d != device)
			continue;
		std::string path = "/sys/class/net/" + ifc + "/temperature";
		double t = 0;
		Float f = readFloat(path, t);
		if (f == Float::NoFile) {
			vlog(LOG_ERR, "%s:%d Fail to open %s", VEXO_AT, path.c_str());
			continue;
		}
		if (f == Float::Bad) {
			vlog(LOG_ERR, "%s:%d Fail to get temperature from %s", VEXO_AT, path.c_str());
			continue;
		}
		if (t < 0 || t >= 200 || (taken && (int)t <= reading->temperature))
			continue;
		reading->temperature = (int)t;
		setName(reading, ifc.c_str());
		taken = true;
	}
	return taken ? FAN_SOURCE_EXTERNAL_NIC : FAN_SOURCE_NONE;
}

int sasRead(VEXO_FAN_READING_T *reading)
{
	DIR *dir = vexo::sysroot::opendir("/sys/class/sas_host");
	if (!dir)
		return FAN_SOURCE_NONE;
	std::vector<std::string> hosts;
	while (dirent *e = readdir(dir))
		if (e->d_name[0] != '.' && (int)hosts.size() < kSasHostMax)
			hosts.push_back(e->d_name);
	closedir(dir);
	bool named = false, taken = false;
	for (const std::string &host : hosts) {
		std::string base = "/sys/class/sas_host/" + host + "/device/scsi_host/" + host + "/";
		double t = 0;
		if (readFloat(base + "ioc_temperature", t) != Float::Ok) {
			vlog(LOG_ERR, "%s:%d Fail to get temperature from %s", VEXO_AT, (base + "ioc_temperature").c_str());
			continue;
		}
		if (taken && (int)t <= reading->temperature)
			continue;
		reading->temperature = (int)t;
		taken = true;
		std::string board;
		if (!vexo::readString(base + "board_name", board)) {
			vlog(LOG_ERR, "%s:%d Fail to get board name from %s", VEXO_AT, (base + "board_name").c_str());
			continue;
		}
		setName(reading, std::string(vexo::trimSpace(board)).c_str());
		named = true;
	}
	return named ? FAN_SOURCE_SAS : FAN_SOURCE_NONE;
}

int listRead(int (*enumFn)(PVLIBSZLIST *), VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h, bool cache)
{
	if (sleeping(h)) {
		reading->temperature = -1;
		return FAN_SOURCE_HIBERNATE;
	}
	EnumList l(enumFn);
	if (cache) {
		if (!l.get()) {
			vlog(LOG_ERR, "%s:%d Failed to enum cache device.", VEXO_AT);
			return FAN_SOURCE_NONE;
		}
		if (l.get()->nItem == 0)
			return FAN_SOURCE_SSD;
	}
	return DiskTemperatureGetCommon(reading, h, l.get());
}

int listTune(int (*enumFn)(PVLIBSZLIST *), int type, VEXO_FAN_HANDLE_T *h, int shutdown, bool cache)
{
	if (sleeping(h))
		return 0;
	EnumList l(enumFn);
	if (!l.get()) {
		if (cache)
			vlog(LOG_ERR, "%s:%d Failed to enum cache device.", VEXO_AT);
		else
			vlog(LOG_ERR, "%s:%d Failed to enum internal disk.", VEXO_AT);
		return 0;
	}
	VEXO_FAN_READING_T r{};
	int debug = debugRead(type, &r, h, nullptr);
	return DiskTuneCommon(h, l.get(), shutdown, debug);
}

int eboxRead(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h)
{
	if (sleeping(h))
		return FAN_SOURCE_HIBERNATE;
	if (!h || !h->ebox || !h->ebox->disks) {
		if (!h || !h->ebox)
			vlog(LOG_ERR, "%s:%d no EUnit Info", VEXO_AT);
		else
			vlog(LOG_ERR, "%s:%d Can't find EUnit disks", VEXO_AT);
		vlog(LOG_ERR, "%s:%d EUnitDiskEnum failed", VEXO_AT);
		return FAN_SOURCE_NONE;
	}
	reading->temperature = -1;
	int r = VEXOFanTableGetDiskHighestTemp(reading, h->ebox->disks, h);
	if (r < 0)
		return FAN_SOURCE_UNKNOWN;
	if (reading->temperature > 0)
		return FAN_SOURCE_EBOX;
	return r == 1 ? FAN_SOURCE_SSD : FAN_SOURCE_NONE;
}

int eboxTune(VEXO_FAN_HANDLE_T *h, int shutdown)
{
	if (sleeping(h))
		return 0;
	VEXO_FAN_READING_T r{};
	int debug = debugRead(FAN_TABLE_EBOX_DISK, &r, h, nullptr);
	return DiskTuneCommon(h, h && h->ebox ? h->ebox->disks : nullptr, shutdown, debug);
}

} // namespace vexo::fan

using namespace vexo::fan;

extern "C" VEXO_API int VEXOFanIsTemperatureDebugON(VEXO_FAN_READING_T *reading, const char *path) try {
	if (!reading || !path)
		return 0;
	reading->temperature = 0;
	std::string line;
	if (!vexo::readLine(path, line, kDebugLineMax + 1))
		return 0;
	std::string::size_type comma = line.find(',');
	std::string first = line.substr(0, comma);
	int t = std::atoi(first.c_str());
	if (t == 0)
		return 0;
	reading->temperature = t;
	if (comma != std::string::npos) {
		std::string second = line.substr(comma + 1);
		second = second.substr(0, second.find(','));
		setName(reading, std::string(vexo::trimSpace(second)).c_str());
	}
	return 1;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOFanTableGetDiskHighestTemp(VEXO_FAN_READING_T *reading, PVLIBSZLIST list,
						       VEXO_FAN_HANDLE_T *h) try {
	if (!reading || !list) {
		vlog(LOG_ERR, "%s:%d wrong Parameter", VEXO_AT);
		return -1;
	}
	if (list->nItem <= 0) {
		vlog(LOG_ERR, "%s:%d no Disk List", VEXO_AT);
		return -1;
	}
	bool any = false, allSsd = true;
	for (const DiskName &d : diskNames(list)) {
		if (!present(d.name))
			continue;
		any = true;
		int t = h && h->disk_resource ? VEXODiskTempGetFromResource(d.path.c_str(), h->disk_resource)
					      : VEXODiskTemperatureGet(d.path.c_str());
		bool ssd = VEXODiskIsSSD(d.path.c_str()) > 0;
		if (!ssd)
			allSsd = false;
		// A solid-state figure this high is a counter, not degrees.
		if (ssd && t > 100)
			continue;
		if (t > reading->temperature) {
			reading->temperature = t;
			setName(reading, d.name.c_str());
		}
	}
	if (!any)
		return -1;
	return allSsd || reading->temperature < 0 ? 1 : 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int DiskTemperatureGetCommon(VEXO_FAN_READING_T *reading, VEXO_FAN_HANDLE_T *h,
						 PVLIBSZLIST list) try {
	static int maxDisk = -2; // set once; a race only repeats the same read
	if (!reading)
		return FAN_SOURCE_NONE;
	if (maxDisk == -2)
		maxDisk = VLIBCMaxDiskGet();
	reading->temperature = -1;
	if (sleeping(h))
		return FAN_SOURCE_HIBERNATE;
	if (maxDisk == 0) {
		reading->temperature = 0;
		return FAN_SOURCE_DISK;
	}
	if ((VLIBCSupportInstallOnlyDev() > 0 || VLIBCSupportInternalVolumeByNvme() > 0) && list && list->nItem == 0) {
		reading->temperature = 1;
		return FAN_SOURCE_DISK;
	}
	if (!list) {
		vlog(LOG_ERR, "%s:%d Invalid Disks temperature %d\n", VEXO_AT, reading->temperature);
		return FAN_SOURCE_NONE;
	}
	int r = VEXOFanTableGetDiskHighestTemp(reading, list, h);
	int t = reading->temperature;
	if (t >= 1 && t <= 100)
		return FAN_SOURCE_DISK;
	if (t > 100)
		return r != 1 ? FAN_SOURCE_DISK : FAN_SOURCE_SSD;
	if (r == 1)
		return FAN_SOURCE_SSD;
	vlog(LOG_ERR, "%s:%d Invalid Disks temperature %d\n", VEXO_AT, t);
	return FAN_SOURCE_NONE;
}
VEXO_C_CATCH(FAN_SOURCE_NONE)

extern "C" VEXO_API int DiskTuneCommon(VEXO_FAN_HANDLE_T *h, PVLIBSZLIST list, int shutdown, int debug) try {
	if (!h) {
		vlog(LOG_ERR, "%s:%d pHandle is NULL", VEXO_AT);
		return 0;
	}
	if (h->hibernating)
		return 0;
	if (!list) {
		vlog(LOG_ERR, "%s:%d wrong Parameter", VEXO_AT);
		return 1;
	}
	if (list->nItem <= 0) {
		vlog(LOG_ERR, "%s:%d no Disk List", VEXO_AT);
		return 1;
	}
	for (const DiskName &d : diskNames(list))
		if (present(d.name) && VEXODiskInRangeFromResource(d.path.c_str(), h->disk_resource, shutdown, debug) == 0)
			return 0;
	return 1;
}
VEXO_C_CATCH(0)

namespace {
const VEXO_DISK_RESOURCE_NODE_T *findNode(const char *path, const VEXO_DISK_RESOURCE_T *res)
{
	for (const VEXO_DISK_RESOURCE_NODE_T *n = res->nodes; n; n = n->next)
		if (std::strncmp(n->path, path, sizeof n->path) == 0)
			return n;
	return nullptr;
}
} // namespace

extern "C" VEXO_API int VEXODiskTempGetFromResource(const char *path, VEXO_DISK_RESOURCE_T *res)
{
	if (!path || !res)
		return -1;
	const VEXO_DISK_RESOURCE_NODE_T *n = findNode(path, res);
	if (!n) {
		vlog(LOG_DEBUG, "%s:%d Can't find the Disk Node whose path is %s", VEXO_AT, path);
		return -1;
	}
	if (n->temperature < 0 && !n->is_ssd)
		vlog(LOG_ERR, "%s:%d Get temperature failed", VEXO_AT);
	return n->temperature;
}

extern "C" VEXO_API int VEXODiskInRangeFromResource(const char *path, VEXO_DISK_RESOURCE_T *res, int shutdown,
						    int debug)
{
	if (shutdown < 0) {
		vlog(LOG_ERR, "%s:%d iShutdownTemp is invalid", VEXO_AT);
		return 1;
	}
	if (!path || !res) {
		vlog(LOG_ERR, "%s:%d Wrong parameter", VEXO_AT);
		return 1;
	}
	const VEXO_DISK_RESOURCE_NODE_T *n = findNode(path, res);
	if (!n)
		return 1;
	if (debug)
		vlog(LOG_INFO, "%s:%d %s: path=%s, temp=%d, max=%d, min=%d, shutdown=%d, state=%d", VEXO_AT, __func__, path,
		     n->temperature, n->temp_max, n->temp_min, shutdown, n->state);
	if (n->state == 1)
		return 0;
	if (n->temp_min != VEXO_DISK_RESOURCE_TEMP_MIN_INIT || n->temp_max != VEXO_DISK_RESOURCE_TEMP_MAX_INIT)
		return 1;
	return shutdown > n->temperature ? 1 : 0;
}

extern "C" VEXO_API int VEXOFanInitNicFanTableList(VEXO_FAN_HANDLE_T *h) try {
	if (!h)
		return -1;
	VEXOFanNicFanTableListFree(h); // a second call rebuilds, never doubles
	for (int type = kTableTypeFirst; type <= kTableTypeLast; ++type) {
		int vendor = 0, device = 0;
		if (VEXOFanTableNicSSIDGet(type, &vendor, &device) != 0 || VEXOFanIsFanTableExist(h->status_list, type) ||
		    !nicInserted(vendor, device))
			continue;
		VEXO_FAN_TABLE_OPS_T *ops = VEXOFanTableTypeOpsGet(type);
		if (!ops)
			continue;
		auto *n = allocZeroed<NIC_FAN_TABLE_OPS_T>();
		if (!n)
			return -1;
		n->ops = ops;
		n->next = h->nic_tables;
		h->nic_tables = n;
	}
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API void VEXOFanNicFanTableListFree(VEXO_FAN_HANDLE_T *h)
{
	if (!h)
		return;
	while (NIC_FAN_TABLE_OPS_T *n = h->nic_tables) {
		h->nic_tables = n->next;
		std::free(n);
	}
}
