// What the self-tests mean for a disk now: the test status and its weight,
// whether a test runs, whether the disk can test at all, and stopping one.
#include <cstring>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/text.h"
#include "smartctl/self_test.h"

using namespace vexo::selftest;

namespace {

// Bit 25 of the disk action flags: the model must not run self-tests.
constexpr unsigned kActionNoSelfTest = 1u << 25;
constexpr unsigned kLogDirSelfTestSectors = 12; // sector count of log 6 in the directory

std::string shortName(const char *path)
{
	const char *n = VEXODiskDevPrefixSkip(path);
	return n ? n : "";
}

} // namespace

extern "C" {

VEXO_API int SmartTestStatusGet(const char *path, char *progress, int size, int *weight)
try {
	SmartTestLog log{};
	if (SMARTSelfTestLogRead(path, &log) != 0) {
		vlog(LOG_ERR, "%s:%d SMARTSelfTestLogRead(%s) fail", VEXO_AT, path ? path : "");
		return SMART_TEST_STATUS_UNKNOWN;
	}
	if (log.currentResult == SMART_TEST_RESULT_PROGRESS && progress && size > 0) {
		bool scsi = VEXOSmartctlCommandInterfaceGet(path) == sas_command_interface &&
			    VEXODiskScsiProtocolGet(path) != VEXO_DISK_PROTOCOL_NVME;
		vexo::copyTextCut(progress, size, scsi ? "-1" : log.progress);
	}
	if (testResultIgnorable(path))
		return SMART_TEST_STATUS_NORMAL;
	if (log.latestType == SMART_TEST_TYPE_QUICK && log.quickResult != SMART_TEST_RESULT_DAMAGE)
		return SMART_TEST_STATUS_NORMAL;
	if (log.latestType != SMART_TEST_TYPE_QUICK && log.latestType != SMART_TEST_TYPE_EXTEND)
		return SMART_TEST_STATUS_NORMAL;
	if (log.extendResult != SMART_TEST_RESULT_DAMAGE)
		return SMART_TEST_STATUS_NORMAL;
	if (weight)
		*weight += SMART_TEST_FAIL_WEIGHT;
	return SMART_TEST_STATUS_FAIL;
}
VEXO_C_CATCH(SMART_TEST_STATUS_UNKNOWN)

VEXO_API int SMARTIsSelftesting(const char *path)
try {
	if (!path || VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return 0;
	SmartTestLog log{};
	if (SMARTSelfTestLogRead(path, &log) != 0)
		return 0;
	return log.currentResult == SMART_TEST_RESULT_PROGRESS ? 1 : 0;
}
VEXO_C_CATCH(0)

VEXO_API int IsSelfTestLogCapability(int fd, const char *path, int *kind)
try {
	if (!path || fd < 0)
		return 0;
	if (kind)
		*kind = kLogKindStandard;
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (iface == sas_command_interface)
		return 0;
	unsigned char dir[512] = {};
	if (iface(fd, CMD_SMART_READ_LOG_DIRECTORY, dir) != 0)
		return 0;
	return dir[kLogDirSelfTestSectors] != 0 ? 1 : 0;
}
VEXO_C_CATCH(0)

VEXO_API int ISSelfTestLogSupport(int fd, const char *path)
{
	int kind = 0;
	return IsSelfTestLogCapability(fd, path, &kind) == 1 ? 1 : 0;
}

VEXO_API int VEXODiskSmartTestSupport(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME &&
	    !(VEXODiskIsVexology(path) && VEXONVMeSupportSelfTest(path)))
		return 0;
	unsigned flags = 0;
	if (VEXODiskConfigDiskActionGet(path, &flags) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk configure action.", VEXO_AT);
		return 1;
	}
	return (flags & kActionNoSelfTest) ? 0 : 1;
}
VEXO_C_CATCH(0)

VEXO_API int VEXODiskSmartTestSupportCache(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	int v = 0;
	if (VEXODiskGetIntValueCacheFile(path, "smart_test_support", &v) == 0)
		return v ? 1 : 0;
	v = VEXODiskSmartTestSupport(path);
	std::string name = shortName(path);
	if (!name.empty() && VEXODiskUpdateIntValueCacheFile(name.c_str(), "smart_test_support", v) != 0)
		vlog(LOG_ERR, "%s:%d Failed to update %s", VEXO_AT, "smart_test_support");
	return v;
}
VEXO_C_CATCH(0)

VEXO_API int VEXODiskSmartTestStop(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (VLIBCExecl(SMART_TEST_TOOL, SMART_TEST_TOOL, "--type", "stop", "--disk", "sel", path, static_cast<const char *>(nullptr)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to stop smart test", VEXO_AT);
		return -1;
	}
	if (SmartTestResultRecord(path) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to record smart log on %s", VEXO_AT, path);
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
