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
#include "frame/text.h"
#include "frame/path_read.h"

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
try {
	if (!path || !*path || !vendor || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	const std::string dev = "/dev/" + name;

	if (VEXODiskScsiProtocolGet(dev.c_str()) == VEXO_DISK_PROTOCOL_NVME) {
		char text[256] = {};
		if (VEXONVMeDiskVendorGet(dev.c_str(), text, sizeof(text)) != 0)
			vexo::copyText(text, "Unknown");
		return VEXO_COPY_OUT(vendor, size, text, "vendor") ? 0 : -1;
	}

	std::string text;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!vexo::readLine("/sys/block/" + name + "/device/vendor", text, 256, false, &why)) {
		VEXO_ERR(why == vexo::ReadFail::Open ? VEXO_ERR_NOENT : VEXO_ERR_READ);
		return -1;
	}
	if (text.compare(0, 3, "ATA") != 0) {
		return VEXO_COPY_OUT(vendor, size, text, "vendor") ? 0 : -1;
	}

	// The kernel names no vendor for ATA disks: the model tells.
	std::string found = "Unknown";
	char model[256] = {};
	if (VEXOLnxDiskGetModel(dev.c_str(), model, sizeof(model)) == 0 &&
	    !vendorOfModel(model, found))
		return -1;
	return VEXO_COPY_OUT(vendor, size, found, "vendor") ? 0 : -1;
} VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOLnxDiskGetVendorCache(const char *path, char *vendor, int size)
try {
	if (!path || !*path || !vendor || size <= 0) {
		vlog(LOG_ERR, "%s:%d Invalid input parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string dev = "/dev/" + vexo::disk::physicalName(vexo::disk::shortName(path));
	char text[256] = {};
	// An empty value is a writer between rename and close: ask the disk.
	if (VEXODiskGetStrValueCacheFile(dev.c_str(), "vendor", text, sizeof(text)) == 0 && text[0]) {
		return VEXO_COPY_OUT(vendor, size, text, "vendor") ? 0 : -1;
	}
	if (VEXOLnxDiskGetVendor(dev.c_str(), text, sizeof(text)) != 0) {
		vlog(LOG_DEBUG, "%s:%d Fail to get disk vendor, err=[0x%d]", VEXO_AT, VLIBCErrGet());
		return -1;
	}
	return VEXO_COPY_OUT(vendor, size, text, "vendor") ? 0 : -1;
} VEXO_C_CATCH(-1)
