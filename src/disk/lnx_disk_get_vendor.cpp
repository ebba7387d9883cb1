// The vendor of a disk. The kernel says "ATA" for every SATA disk, so for
// those the model is matched against the vendor table instead.
#include <cstdio>
#include <cstring>
#include <regex.h>
#include <string>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

struct VendorRow {
	const char *pattern;
	const char *vendor;
};

// First match wins. "FIREBALL.+" and "WD.+" have no anchor on purpose: a
// model that merely contains them counts, unless an earlier row took it.
constexpr VendorRow kVendorTable[] = {
	{"^ST.+", "Seagate"},       {"^D...-.+", "IBM"},       {"^IBM.+", "IBM"},
	{"^HITACHI.+", "Hitachi"},  {"^IC.+", "Hitachi"},      {"^HTS.+", "Hitachi"},
	{"^FUJITSU.+", "Fujitsu"},  {"^MP.+", "Fujitsu"},      {"^TOSHIBA.+", "Toshiba"},
	{"^MK.+", "Toshiba"},       {"^MAXTOR.+", "Maxtor"},   {"^Pioneer.+", "Pioneer"},
	{"^PHILIPS.+", "Philips"},  {"^QUANTUM.+", "Quantum"}, {"FIREBALL.+", "Quantum"},
	{"^WDC.+", "Western Digital"}, {"WD.+", "Western Digital"}, {"^TS.+", "Transcend"},
	{"^ADATA.+", "ADATA"},
};
constexpr int kVendorRows = sizeof(kVendorTable) / sizeof(kVendorTable[0]);
static_assert(kVendorRows == 19);

// Compiled once per process; the initialisation of a function-local static
// is thread-safe, and regexec on a compiled pattern is re-entrant.
struct CompiledTable {
	regex_t re[kVendorRows];
	bool ok[kVendorRows];
	CompiledTable()
	{
		for (int i = 0; i < kVendorRows; ++i)
			ok[i] = regcomp(&re[i], kVendorTable[i].pattern, REG_EXTENDED | REG_ICASE | REG_NOSUB) == 0;
	}
	~CompiledTable()
	{
		for (int i = 0; i < kVendorRows; ++i)
			if (ok[i])
				regfree(&re[i]);
	}
};

const CompiledTable &compiled()
{
	static const CompiledTable table;
	return table;
}

// The vendor of a model text by the table; "Unknown" when no row matches.
// False (0x0D00 recorded) when a pattern did not compile.
bool vendorOfModel(const char *model, std::string &vendor)
{
	const CompiledTable &t = compiled();
	for (int i = 0; i < kVendorRows; ++i) {
		if (!t.ok[i]) {
			vlog(LOG_ERR, "%s:%d Failed to compile vendor pattern %s", VEXO_AT, kVendorTable[i].pattern);
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return false;
		}
		if (regexec(&t.re[i], model, 0, nullptr, 0) == 0) {
			vendor = kVendorTable[i].vendor;
			return true;
		}
	}
	vendor = "Unknown";
	return true;
}

} // namespace

extern "C" VEXO_API int VEXOLnxDiskGetVendor(const char *path, char *vendor, int size)
{
	if (!path || !*path || !vendor || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	const std::string dev = "/dev/" + name;

	if (VEXODiskScsiProtocolGet(dev.c_str()) == VEXO_DISK_PROTOCOL_NVME) {
		char text[256] = {};
		if (VEXONVMeDiskVendorGet(dev.c_str(), text, sizeof(text)) != 0)
			std::snprintf(text, sizeof(text), "%s", "Unknown");
		std::snprintf(vendor, size, "%s", text);
		return 0;
	}

	const std::string file = "/sys/block/" + name + "/device/vendor";
	vexo::UniqueFile f(vexo::sysroot::fopen(file.c_str(), "r"));
	if (!f) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return -1;
	}
	char text[256] = {};
	if (!std::fgets(text, sizeof(text), f.get())) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	if (char *nl = std::strchr(text, '\n'))
		*nl = '\0';
	if (std::strncmp(text, "ATA", 3) != 0) {
		std::snprintf(vendor, size, "%s", text);
		return 0;
	}

	// The kernel names no vendor for ATA disks: the model tells.
	std::string found = "Unknown";
	char model[256] = {};
	if (VEXOLnxDiskGetModel(dev.c_str(), model, sizeof(model)) == 0 &&
	    !vendorOfModel(model, found))
		return -1;
	std::snprintf(vendor, size, "%s", found.c_str());
	return 0;
}

extern "C" VEXO_API int VEXOLnxDiskGetVendorCache(const char *path, char *vendor, int size)
{
	if (!path || !*path || !vendor || size <= 0) {
		vlog(LOG_ERR, "%s:%d Invalid input parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string dev = "/dev/" + vexo::disk::physicalName(vexo::disk::shortName(path));
	char text[256] = {};
	// An empty value is a writer between rename and close: ask the disk.
	if (VEXODiskGetStrValueCacheFile(dev.c_str(), "vendor", text, sizeof(text)) == 0 && text[0]) {
		std::snprintf(vendor, size, "%s", text);
		return 0;
	}
	if (VEXOLnxDiskGetVendor(dev.c_str(), text, sizeof(text)) != 0) {
		vlog(LOG_DEBUG, "%s:%d Fail to get disk vendor, err=[0x%d]", VEXO_AT, VLIBCErrGet());
		return -1;
	}
	std::snprintf(vendor, size, "%s", text);
	return 0;
}
