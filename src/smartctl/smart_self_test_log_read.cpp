// SMARTSelfTestLogRead: a disk's self-test record from whichever log it
// keeps, with the debug overrides applied, then the latest-result rule.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <vector>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>

#include "frame/boundary.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "smartctl/self_test.h"

namespace vexo::selftest {
namespace {

constexpr unsigned kExtLogAddress = 7, kLogDirPagesOffset = 14;
// The sector count of READ LOG EXT through the 16-byte pass-through is one byte here.
constexpr unsigned kMaxSectorsPerRead = 255;

bool isScsi(const char *path) { return VEXOSmartctlCommandInterfaceGet(path) == sas_command_interface; }

// Log 7 across its pages: the directory (log 0 of the extended logs) says
// how many, and one READ LOG EXT per page fetches them.
bool readExtendedLog(int fd, const char *path, std::vector<uint8_t> &pages)
{
	std::vector<uint8_t> dir(512, 0);
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (iface == sas_command_interface || iface(fd, CMD_SMART_READ_LOG_DIRECTORY, dir.data()) != 0)
		return false;
	if (SMARTReadLogExt(fd, 0, 1, 0, 0, dir.data()) != 0)
		return false;
	unsigned count = dir[kLogDirPagesOffset] | dir[kLogDirPagesOffset + 1] << 8;
	if (count == 0)
		return false;
	pages.assign(static_cast<size_t>(count) * 512, 0);
	// All pages in one command where the sector count allows, so that a
	// long log costs one command, not one a page.
	for (unsigned p = 0; p < count; p += kMaxSectorsPerRead) {
		unsigned n = std::min(kMaxSectorsPerRead, count - p);
		if (SMARTReadLogExt(fd, 0, n, kExtLogAddress, p, pages.data() + static_cast<size_t>(p) * 512) != 0)
			return false;
	}
	return true;
}

void debugOverride(const char *path, const char *key, unsigned &field)
{
	int v = 0;
	if (VEXODiskDebugSmartTestResultGet(path, key, &v) == 1)
		field = static_cast<unsigned>(v);
}

} // namespace

int ataRead(int fd, const char *path, SmartTestLog &log)
{
	uint8_t values[512] = {};
	if (SmartValuesRead(path, fd, values) != 0) {
		vlog(LOG_ERR, "%s(%d) read value %s fail", VEXO_AT, "SmartSelfTestExecutionStatusGet");
		return -1;
	}
	if (!decodeSmartValues(std::span<const uint8_t, 512>(values, 512), log))
		return -1;
	int kind = kLogKindNone;
	if (VEXODiskGetIntValueCacheFile(path, "smart_selftest_log_type", &kind) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get smart test log support type of %s from cache file.", VEXO_AT, path);
		return -1;
	}
	if (kind == kLogKindStandard) {
		uint8_t page[512] = {};
		if (VEXOSmartctlCommandInterfaceGet(path)(fd, CMD_SMART_READ_SELFTEST_LOG, page) != 0) {
			vlog(LOG_ERR, "%s:%d SMART Error Self-Test Log Read failed", VEXO_AT);
			return 0;
		}
		decodeAtaStandardLog(std::span<const uint8_t, 512>(page, 512), log);
		return 0;
	}
	if (kind == kLogKindExtended) {
		std::vector<uint8_t> pages;
		if (readExtendedLog(fd, path, pages)) {
			decodeAtaExtendedLog(pages, log);
			return 0;
		}
	}
	readFallback(path, log);
	return 0;
}

int scsiRead(int fd, const char *, SmartTestLog &log)
{
	uint8_t page[512] = {};
	if (sas_command_interface(fd, SCSI_LOG_SELF_TEST, page) != 0) {
		vlog(LOG_ERR, "%s:%d sas_command_interface get temp failed.", VEXO_AT);
		return -1;
	}
	decodeScsiSelfTestPage(page, log);
	return 0;
}

int scsiTimeGet(int fd, const char *, SmartTestLog &log)
{
	uint8_t page[512] = {};
	if (sas_command_interface(fd, SCSI_MODE_SENSE_CONTROL, page) != 0)
		return -1;
	return decodeScsiControlMode(page, log) ? 0 : -1;
}

int nvmeRead(const char *path, SmartTestLog &log)
{
	std::vector<uint8_t> page(kNvmeLogSize, 0);
	log.quickResult = log.extendResult = log.currentResult = SMART_TEST_RESULT_NONE;
	if (VEXONVMeLogGet(path, kNvmeSelfTestLogPage, page.data(), static_cast<unsigned>(page.size())) != 0) {
		vlog(LOG_ERR, "%s:%d Error: VEXONVMeLogGet (self-test-log) %d", VEXO_AT, -1);
		return -1;
	}
	return decodeNvmeSelfTestLog(page, log) ? 0 : -1;
}

int nvmeTimeGet(const char *path, SmartTestLog &log)
{
	int minutes = VEXONVMeExtendSelfTestTimeMinGet(path);
	if (minutes < 0)
		return -1;
	std::snprintf(log.quickMinutes, sizeof(log.quickMinutes), "%d", 2);
	std::snprintf(log.extendMinutes, sizeof(log.extendMinutes), "%d", minutes);
	return 0;
}

} // namespace vexo::selftest

using namespace vexo::selftest;

extern "C" {

VEXO_API int SMARTSelfTestLogRead(const char *path, SmartTestLog *log)
try {
	if (!path || !log) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return -1;
	}
	ENTERCriticalSection;
	SmartTestLog rec{};
	int protocol = VEXODiskScsiProtocolGet(path);
	if (protocol == VEXO_DISK_PROTOCOL_NVME) {
		if (nvmeRead(path, rec) != 0) {
			vlog(LOG_ERR, "SMARTNvmeSelfTestLogRead");
			return -1;
		}
		if (nvmeTimeGet(path, rec) != 0) {
			vlog(LOG_ERR, "%s:%d SMARTNvmeSelfTestTimeGet failed.", VEXO_AT);
			return -1;
		}
	} else {
		auto h = vexo::dev::Device::adopt(VEXOIDiskRawOpen(path));
		if (!h) {
			VEXO_ERR_PASS();
			return -1;
		}
		if (isScsi(path)) {
			if (scsiRead(h.handle(), path, rec) != 0) {
				vlog(LOG_ERR, "SMARTScsiSelfTestLogRead failed");
				return -1;
			}
			if (scsiTimeGet(h.handle(), path, rec) != 0) {
				vlog(LOG_ERR, "%s:%d SMARTScsiSelfTestTimeGet failed.", VEXO_AT);
				return -1;
			}
		} else if (ataRead(h.handle(), path, rec) != 0) {
			return -1;
		}
	}
	debugOverride(path, "smart_test_quick", rec.quickResult);
	debugOverride(path, "smart_test_extend", rec.extendResult);
	int type = 0;
	if (SMARTDiskDebugSmartLatestTestTypeGet(path, &type) == 1)
		rec.latestType = static_cast<unsigned>(type);
	SmartTestLatestResultSet(&rec);
	debugOverride(path, "smart_test", rec.latestResult);
	*log = rec;
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
