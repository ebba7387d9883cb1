// Product questions, answered from the product's fixed description,
// /etc.defaults/vexoinfo.conf. Each question is one key; "yes" (any case)
// means true and a missing key or file means no. The answers are never
// kept: the parsed file is, checked by one stat on every question (see
// findValue), so a rewritten file or another root answers at once.
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "text_file.h"

namespace {

constexpr const char *kProductFile = "/etc.defaults/vexoinfo.conf";

enum class Q {
	SupportSAS,
	SupportNVMe,
	SupportNvmeEunit,
	SupportRAID,
	SupportDualhead,
	SupportIsolatedDiskSystem,
	SupportM2AllDev,
	BlockM2SATA,
	SupportDiskCompatibility,
	SupportDiskStatusDebug,
	SupportInstallOnlyDev,
	SupportInternalVolumeByNvme,
	SupportLEDBrightnessAdjust,
	IsVVOS,
	IsAliVOS,
	VexologyDriveOnly,
	SataDeepSleepEn,
	MaxDisk,
};

struct Question {
	Q q;
	const char *key;
};

// question -> key of /etc.defaults/vexoinfo.conf
constexpr Question kQuestions[] = {
	{Q::SupportSAS, "support_sas"},                       // SAS drives and SAS expansion units
	{Q::SupportNVMe, "support_nvme"},                     // NVMe drives in the box
	{Q::SupportNvmeEunit, "support_nvme_eunit"},          // NVMe expansion units
	{Q::SupportRAID, "support_raid"},                     // the system partitions are on md RAID
	{Q::SupportDualhead, "support_dual_head"},            // two controllers share the drives
	{Q::SupportIsolatedDiskSystem, "support_isolated_disk_system"}, // no internal bays of its own
	{Q::SupportM2AllDev, "support_m2_all_dev"},           // M.2 slots take every kind of device
	{Q::BlockM2SATA, "block_m2_sata"},                    // M.2 SATA drives are not used
	{Q::SupportDiskCompatibility, "support_disk_compatibility"}, // drives are checked against the database
	{Q::SupportDiskStatusDebug, "support_disk_status_debug"},    // /tmp/.disk_status_debug is honoured
	{Q::SupportInstallOnlyDev, "support_install_only_dev"},      // devices that only hold the system
	{Q::SupportInternalVolumeByNvme, "support_internal_volume_by_nvme"}, // volumes on internal NVMe
	{Q::SupportLEDBrightnessAdjust, "support_led_brightness_adjust"},    // the LED dimmer
	{Q::IsVVOS, "vvos"},                                  // the virtual edition
	{Q::IsAliVOS, "alivos"},                              // the edition with its system on partition 5
	{Q::VexologyDriveOnly, "support_vexology_drive_only"}, // only the maker's drives are accepted
	{Q::SataDeepSleepEn, "support_sata_deep_sleep"},      // internal SATA SSDs may sleep
	{Q::MaxDisk, "maxdisks"},                             // number of internal bays (a number)
};

constexpr const char *keyOf(Q q)
{
	for (const auto &e : kQuestions)
		if (e.q == q)
			return e.key;
	return nullptr;
}

// The product value of key, "" when missing.
std::string productValue(const char *key)
{
	// A question is not a failure: leave the caller's error record as it was.
	int code = VLIBCErrGet();
	const char *file = VLIBCErrFileGet();
	int line = VLIBCErrLineGet();
	std::string value;
	if (vexo::core::findValue(kProductFile, key, value) <= 0)
		value.clear();
	VLIBCErrSetEx(code, code || line ? file : nullptr, line);
	return value;
}

int yes(const char *key) { return strcasecmp(productValue(key).c_str(), "yes") == 0 ? 1 : 0; }

int ask(Q q) { return yes(keyOf(q)); }

} // namespace

extern "C" {

VEXOP_API int VLIBCSupportGet(const char *key)
try {
	if (!key || !*key) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	return yes(key);
} VEXO_C_CATCH(0)

VEXOP_API int VLIBCSupportSAS(void) try { return ask(Q::SupportSAS); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportNVMe(void) try { return ask(Q::SupportNVMe); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportNvmeEunit(void) try { return ask(Q::SupportNvmeEunit); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportRAID(void) try { return ask(Q::SupportRAID); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportDualhead(void) try { return ask(Q::SupportDualhead); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportIsolatedDiskSystem(void) try { return ask(Q::SupportIsolatedDiskSystem); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportM2AllDev(void) try { return ask(Q::SupportM2AllDev); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCBlockM2SATA(void) try { return ask(Q::BlockM2SATA); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportDiskCompatibility(void) try { return ask(Q::SupportDiskCompatibility); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportDiskStatusDebug(void) try { return ask(Q::SupportDiskStatusDebug); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportInstallOnlyDev(void) try { return ask(Q::SupportInstallOnlyDev); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportInternalVolumeByNvme(void) try { return ask(Q::SupportInternalVolumeByNvme); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSupportLEDBrightnessAdjust(void) try { return ask(Q::SupportLEDBrightnessAdjust); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCIsVVOS(void) try { return ask(Q::IsVVOS); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCIsAliVOS(void) try { return ask(Q::IsAliVOS); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCVexologyDriveOnly(void) try { return ask(Q::VexologyDriveOnly); } VEXO_C_CATCH(0)
VEXOP_API int VLIBCSataDeepSleepEn(void) try { return ask(Q::SataDeepSleepEn); } VEXO_C_CATCH(0)

VEXOP_API int VLIBCMaxDiskGet(void)
try {
	std::string v = productValue(keyOf(Q::MaxDisk));
	char *end = nullptr;
	long n = std::strtol(v.c_str(), &end, 10);
	if (v.empty() || *end != '\0' || n < 0 || n > 4096)
		return 0;
	return static_cast<int>(n);
} VEXO_C_CATCH(0)

} // extern "C"
