// The table of the host's databases: eight fixed rows, then one per M.2
// adapter card that carries an internal or cache disk.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>
#include <vexohw/disk_enum.h>
#include <vexohw/ext.h>
#include <vexoplatform/nvme_location.h>

#include "disk/dbupdate.h"
#include "frame/boundary.h"
#include "frame/err.h"

namespace {

struct Fixed {
	const char *name, *dbPath, *versionPath;
	int required, copyToTmp, statusIndex, perModel, checkModel;
};

constexpr Fixed kRows[VEXO_DISK_DB_FIXED_ROWS] = {
	{"smart", "/var/lib/smartmontools/vexodrivedb.db", "/var/lib/smartmontools/vexodrivedb.version", 1, 1, 1, 0, 0},
	{"opensource", "/var/lib/smartmontools/drivedb.db", "/var/lib/smartmontools/drivedb.version", 1, 1, 2, 0, 0},
	{"temperature", "/var/lib/temperature/disk_temperature.xml", "/var/lib/temperature/disk_temperature.version",
	 1, 0, 3, 0, 0},
	{"diskaction", "/var/lib/diskaction/diskaction.xml", "/var/lib/diskaction/diskaction.version", 1, 0, 4, 0, 0},
	{"%s_diskaction_custom", "/var/lib/diskaction/%s_diskaction_custom.xml",
	 "/var/lib/diskaction/%s_diskaction_custom.version", 0, 0, 4, 1, 0},
	{"HCL_v7_%s", "/var/lib/disk-compatibility/%s_host_v7.db", "/var/lib/disk-compatibility/%s_host_v7.version", 0, 0,
	 5, 1, 1},
	{"MemHCL_v6_%s", "/var/lib/memory-compatibility/%s_mem_host.db",
	 "/var/lib/memory-compatibility/%s_mem_host.version", 0, 0, 5, 1, 1},
	{"drive_attribute", "/var/lib/drive_attribute/drive_attribute.db",
	 "/var/lib/drive_attribute/drive_attribute.version", 1, 1, 6, 0, 0},
};

void copy(char (&to)[1024], const std::string &from)
{
	std::snprintf(to, sizeof to, "%s", from.c_str());
}

std::string releaseOf(const std::string &dbPath)
{
	return dbPath.substr(0, dbPath.rfind('.')) + ".release";
}

DiskOnlineDbInfo row(const Fixed &f)
{
	DiskOnlineDbInfo r{};
	copy(r.name, f.name);
	copy(r.dbPath, f.dbPath);
	copy(r.versionPath, f.versionPath);
	r.required = f.required;
	r.nameFunction = f.perModel ? VEXODiskModelReplaceName : nullptr;
	r.copyToTmp = f.copyToTmp;
	r.statusIndex = f.statusIndex;
	r.perModel = f.perModel;
	r.checkModel = f.checkModel;
	if (f.perModel)
		copy(r.releasePath, releaseOf(f.dbPath));
	return r;
}

// The cards that carry an internal or cache disk, each once, in the order
// their first disk comes. The walk asks no drive anything.
std::vector<std::string> cards()
{
	std::vector<std::string> names;
	const int32_t mask = DISK_CONTAINER_MASK_INTERNAL;
	DiskEnumFilter filter{&mask};
	DiskListNode *list = nullptr;
	if (VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &list, nullptr) < 0)
		return names;
	uint64_t seen = 0;
	for (DiskListNode *n = list; n; n = n->next) {
		if (!n->info)
			continue;
		int card = VEXOM2CardModelGet(n->info->path);
		const char *name = VEXOM2CardIDToStr(card);
		if (card == VEXO_M2CARD_NONE || card == VEXO_M2CARD_UNKNOWN || card < 0 || card >= 64 || !name)
			continue;
		if (seen & (uint64_t{1} << card))
			continue;
		seen |= uint64_t{1} << card;
		std::string lower(name);
		for (char &c : lower)
			c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
		names.push_back(lower);
	}
	DiskInfoEnumFree(list);
	return names;
}

} // namespace

extern "C" VEXO_API int VEXODiskOnlineDbInfoGet(DiskOnlineDbInfo **rows) try {
	if (!rows) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<DiskOnlineDbInfo> table;
	for (const Fixed &f : kRows)
		table.push_back(row(f));
	const Fixed &hcl = kRows[5];
	for (const std::string &card : cards()) {
		DiskOnlineDbInfo r = row(hcl);
		copy(r.name, "HCL_v7_%s_" + card);
		std::string base = "/var/lib/disk-compatibility/%s_" + card + "_v7";
		copy(r.dbPath, base + ".db");
		copy(r.versionPath, base + ".version");
		copy(r.releasePath, base + ".release");
		table.push_back(r);
	}
	auto *out = static_cast<DiskOnlineDbInfo *>(std::calloc(table.size(), sizeof(DiskOnlineDbInfo)));
	if (!out) {
		VEXO_ERR(VEXO_ERR_NOMEM);
		return -1;
	}
	std::memcpy(out, table.data(), table.size() * sizeof(DiskOnlineDbInfo));
	*rows = out;
	return static_cast<int>(table.size());
}
VEXO_C_CATCH(-1)
