// Flashing: one drive with the distribution's tools and their retries, the
// validation of a binary, and a whole plan with one child process per drive,
// all at once, under one time budget.
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <vexohw/compat_cache.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/fw_status.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/misc.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/logdb.h>

#include "disk/disk_model_whole.h"
#include "drive_bundle/drive_bundle_private.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

using namespace vexo::bundle;

namespace vexo::bundle {
int gSecondsLeft = 0;
}

namespace {

constexpr const char *kHdparm = "/usr/bin/hdparm";
constexpr const char *kNvme = "/usr/sbin/nvme";
constexpr const char *kResultLog = "/var/lib/drive-bundle/fw-upgrade/result.log";
constexpr int kAttempts = 4;
// The system log's events of a drive's firmware upgrade.
constexpr int kEventFirmwareUpgraded = 80;
constexpr int kEventFirmwareUpgradeFailed = 81;
constexpr int kDefaultTimeout = 600;
// What a child may take beyond its own budget before the run stops it.
constexpr int kGraceSeconds = 10;

using Argv = std::vector<const char *>;

// Runs argv with the seconds left, up to four attempts; the attempt number
// of the last try goes to *retries. 0 on success.
int runWithRetries(const Argv &a, int *retries)
{
	*retries = 0;
	if (gSecondsLeft <= 0)
		return -1;
	const char *v[8] = {};
	for (std::size_t i = 0; i < a.size() && i < 8; ++i)
		v[i] = a[i];
	auto s = [](const char *x) { return x ? x : ""; };
	for (int attempt = 0; attempt < kAttempts; ++attempt) {
		*retries = attempt;
		const std::int64_t start = vexo::clock::monotonicMs();
		VLIBCErrClear();
		int status = VLIBCTimedExecWithEnv(gSecondsLeft, v[0], v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7],
						   static_cast<char *>(nullptr));
		const bool timedOut = VLIBCErrGet() == VEXO_ERR_TIMEOUT;
		gSecondsLeft -= static_cast<int>((vexo::clock::monotonicMs() - start) / 1000);
		if (status == 0 && !timedOut)
			return 0;
		if (timedOut)
			vlog(LOG_ERR, "%s:%d Failed to exec [%s,%s,%s,%s,%s,%s,%s,%s]: timeout", VEXO_AT, s(v[0]), s(v[1]),
			     s(v[2]), s(v[3]), s(v[4]), s(v[5]), s(v[6]), s(v[7]));
		else
			vlog(LOG_ERR, "%s:%d Failed to exec [%s,%s,%s,%s,%s,%s,%s,%s]: return %d", VEXO_AT, s(v[0]),
			     s(v[1]), s(v[2]), s(v[3]), s(v[4]), s(v[5]), s(v[6]), s(v[7]), status);
		if (gSecondsLeft <= 0)
			break;
	}
	return -1;
}

int updateTimeout(int fallback)
{
	char text[32];
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "drive_firmware_update_timeout", text, sizeof(text), 0) >
	    0) {
		char *end = nullptr;
		long v = std::strtol(text, &end, 10);
		if (end != text && *end == '\0' && v > 0 && v <= INT_MAX)
			return static_cast<int>(v);
	}
	return fallback;
}

bool pathExists(const char *path)
{
	struct stat st {};
	return vexo::sysroot::stat(path, &st) == 0;
}

// A whole copy by tmp and rename, so that a reader sees the old plan or the
// new one.
bool copyFile(const char *from, const char *to)
{
	vexo::UniqueFd in(vexo::sysroot::open(from, O_RDONLY | O_CLOEXEC));
	if (in.get() < 0)
		return false;
	std::string text;
	char buf[8192];
	for (ssize_t n; (n = ::read(in.get(), buf, sizeof(buf))) != 0;) {
		if (n < 0 && errno == EINTR)
			continue;
		if (n < 0)
			return false;
		text.append(buf, static_cast<std::size_t>(n));
	}
	return DBWriteToFile(to, text.c_str()) == 0;
}

void appendResult(const DB_FW_UPGRADE_CONFIG &c, const char *model)
{
	char line[512];
	int n = std::snprintf(line, sizeof(line), "%lld\t%s\t%s\t%s\t%s\t%s\t%d\n",
			      static_cast<long long>(vexo::clock::wallSeconds()), c.id, c.drive_path, model,
			      c.firmware, c.available_firmware, c.upgrade_status);
	if (n <= 0 || n >= static_cast<int>(sizeof(line)))
		return;
	ENTERCriticalSection;
	if (VEXODriveBundleCheckDirExistOrCreate("/var/lib/drive-bundle/fw-upgrade/") != 0)
		return;
	// One write with O_APPEND: lines of drives finishing together never mix.
	vexo::UniqueFd fd(vexo::sysroot::open(kResultLog, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
	if (fd.get() < 0 || VLIBCWrite(fd.get(), line, static_cast<std::size_t>(n)) != n)
		vlog(LOG_ERR, "%s:%d Failed to write %s. errno=%m", VEXO_AT, kResultLog);
}

// One drive's outcome in the system log, named as the user knows the disk:
// its model, where it stands and its mail identity. What cannot be had is
// logged and left empty: the outcome itself is never dropped. false when
// the record cannot be written.
bool recordResult(const DB_FW_UPGRADE_CONFIG &c)
{
	std::string model;
	if (!diskCacheGet(c.drive_path, "model", model))
		vlog(LOG_ERR, "%s:%d Failed to get %s of %s in disk cache", VEXO_AT, "model", c.drive_path);
	DiskId id{};
	char mailId[256] = "", host[128] = "";
	if (DiskPathParse(c.drive_path, &id) != 0 || DiskIdToMailString(&id, mailId, sizeof(mailId)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get disk ID of %s", VEXO_AT, c.drive_path);
		mailId[0] = '\0';
	}
	if (VEXODiskLocateHostGet(c.drive_path, host, sizeof(host), 0) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get located hostname: %s", VEXO_AT, c.drive_path);
		host[0] = '\0';
	}
	const bool ok = c.upgrade_status == VEXO_FW_DRIVE_SUCCESS;
	vlog(ok ? LOG_INFO : LOG_ERR, "%s:%d Firmware upgrade of %s on %s (%s, %s, %s) from %s to %s: %s", VEXO_AT, mailId,
	     host, c.drive_path, model.c_str(), c.id, c.firmware, c.available_firmware, ok ? "success" : "failed");
	if (VLIBLogSetByVA("disk", ok ? kEventFirmwareUpgraded : kEventFirmwareUpgradeFailed, model.c_str(), c.id, host,
			   mailId, c.firmware, c.available_firmware, c.drive_path, static_cast<const char *>(nullptr)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to record the firmware upgrade of %s", VEXO_AT, c.drive_path);
		return false;
	}
	return true;
}

struct RunOptions {
	int atEarlyBootup;
	int updateStatus;
	const char *nextVersion;   // pending system update, or null
	const char *nextPromotion; // pending promotion, or null
};

// One drive's child: the flashing, the read-back, the section and the
// result line.
int flashOne(DB_FW_UPGRADE_CONFIG &c, const RunOptions &o)
{
	std::string name = devName(c.drive_path);
	if (name.empty()) {
		vlog(LOG_ERR, "%s:%d Failed to parse %s", VEXO_AT, c.drive_path);
		return -1;
	}
	std::string pidFile = pidFileOf(name);
	if (!o.atEarlyBootup && VLIBCProcPidFileCreate(pidFile.c_str()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to create pid file: %s. [0x%04X %s:%d]", VEXO_AT, pidFile.c_str(),
		     VLIBCErrGet(), VLIBCErrFileGet(), VLIBCErrLineGet());
		c.upgrade_status = VEXO_FW_DRIVE_FAILED;
		VEXODriveBundleFWUpgradeConfigSet(VEXO_FW_UPGRADE_WORKING_CONF, &c);
		return -1;
	}
	c.upgrade_status = VEXO_FW_DRIVE_IN_PROGRESS;
	VEXODriveBundleFWUpgradeConfigSet(VEXO_FW_UPGRADE_WORKING_CONF, &c);
	vlog(LOG_INFO, "%s:%d Start to upgrade firmware of %s to %s", VEXO_AT, c.drive_path, c.available_firmware);
	int dl = 0, act = 0, result;
	char firmware[64] = "", serial[64] = "";
	if (VEXODriveBundleFWUpgrade(c.drive_path, c.available_firmware_binary, kDefaultTimeout, &dl, &act) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to upgrade firmware of %s because upgrade command failed", VEXO_AT,
		     c.drive_path);
		result = VEXO_FW_DRIVE_COMMAND_FAILED;
	} else if (!pathExists(c.drive_path)) {
		vlog(LOG_ERR, "%s:%d Failed to upgrade firmware of %s because the drive path[%s] did not exist", VEXO_AT,
		     c.id, c.drive_path);
		result = VEXO_FW_DRIVE_VANISHED;
	} else if (SmartFirmAndSerialRead(c.drive_path, firmware, sizeof(firmware), serial, sizeof(serial)) != 0) {
		vlog(LOG_ERR, "%s:%d Fail to get firm and serial of [%s]", VEXO_AT, c.drive_path);
		result = VEXO_FW_DRIVE_FAILED;
	} else if (std::strcmp(firmware, c.available_firmware) == 0) {
		result = VEXO_FW_DRIVE_SUCCESS;
	} else {
		vlog(LOG_ERR, "%s:%d Failed to upgrade firmware of %s because firmware version[%s] was not wanted[%s]",
		     VEXO_AT, c.drive_path, firmware, c.available_firmware);
		result = VEXO_FW_DRIVE_COMMAND_FAILED;
	}
	if (o.updateStatus && firmware[0]) {
		// The drive answered, matching or not: its firmware values and
		// verdict must follow the revision it now reports.
		bool fresh = true;
		if (VEXOSBDriveFirmInfoCacheUpdImp(c.drive_path, 1, o.nextVersion, o.nextPromotion) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to update firmware status of %s in disk cache", VEXO_AT, c.drive_path);
			fresh = false;
		}
		if (VEXODiskCompatibilityCacheUpdateAndChecker(c.drive_path) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to update drive compatibility of %s in disk cache", VEXO_AT,
			     c.drive_path);
			fresh = false;
		}
		if (!fresh) {
			vlog(LOG_ERR, "%s:%d Failed to check upgrade success on %s", VEXO_AT, c.drive_path);
			result = VEXO_FW_DRIVE_FAILED;
		}
	}
	vlog(result == VEXO_FW_DRIVE_SUCCESS ? LOG_INFO : LOG_ERR, "%s:%d %s to upgrade firmware of %s to %s", VEXO_AT,
	     result == VEXO_FW_DRIVE_SUCCESS ? "Success" : "Failed", c.drive_path, c.available_firmware);
	c.upgrade_status = result;
	c.download_retry_cnt = dl;
	c.activate_retry_cnt = act;
	VEXODriveBundleFWUpgradeConfigSet(VEXO_FW_UPGRADE_WORKING_CONF, &c);
	std::string model;
	diskCacheGet(c.drive_path, "model", model);
	appendResult(c, model.c_str());
	if (!o.atEarlyBootup && vexo::sysroot::unlink(pidFile.c_str()) != 0)
		vlog(LOG_ERR, "%s:%d Failed to unlink %s, errno=%d", VEXO_AT, pidFile.c_str(), errno);
	return result == VEXO_FW_DRIVE_SUCCESS ? 0 : -1;
}

// The binary's own model, when its info file names one, must be the drive's.
bool modelFits(const DB_FW_UPGRADE_CONFIG &c)
{
	std::string info = std::string(VEXO_FW_UPGRADE_DIR) + c.available_firmware_binary + ".FW_INFO";
	char want[128] = "";
	if (VLIBCFileGetKeyValue(info.c_str(), "model", want, sizeof(want), 0) <= 0)
		return true;
	char model[128] = "";
	if (VEXOLnxDiskGetModel(c.drive_path, model, sizeof(model)) != 0)
		return false;
	VLIBCStrTrimSpace(model);
	// The kernel may show only the first 16 bytes of the model.
	std::string whole;
	vexo::disk::wholeModel(devName(c.drive_path).c_str(), model, whole);
	return whole == want;
}

void failBeforeStart(DB_FW_UPGRADE_CONFIG &c)
{
	c.upgrade_status = VEXO_FW_DRIVE_FAILED;
	c.pid = -1;
	VEXODriveBundleFWUpgradeConfigSet(VEXO_FW_UPGRADE_WORKING_CONF, &c);
	appendResult(c, "");
}

// Waits for the children until the budget is spent; those still running
// then are killed and their drives marked failed.
void waitAll(DB_FW_UPGRADE_CONFIG *list, int budgetSeconds)
{
	const std::int64_t deadline = vexo::clock::monotonicMs() + static_cast<std::int64_t>(budgetSeconds) * 1000;
	for (;;) {
		int running = 0;
		for (DB_FW_UPGRADE_CONFIG *c = list; c; c = c->next) {
			if (c->pid <= 0)
				continue;
			int status = 0;
			pid_t r = ::waitpid(c->pid, &status, WNOHANG);
			if (r == 0) {
				++running;
				continue;
			}
			if (r < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
				vlog(LOG_ERR, "%s:%d Failed to wait pid[%d] with status[0x%x]", VEXO_AT, c->pid, status);
			c->pid = -1;
		}
		if (!running)
			return;
		if (vexo::clock::monotonicMs() >= deadline)
			break;
		::usleep(20000);
	}
	for (DB_FW_UPGRADE_CONFIG *c = list; c; c = c->next) {
		if (c->pid <= 0)
			continue;
		vlog(LOG_ERR, "%s:%d Failed to upgrade firmware of %s because it took longer than %d seconds", VEXO_AT,
		     c->drive_path, budgetSeconds);
		::kill(c->pid, SIGKILL);
		::waitpid(c->pid, nullptr, 0);
		c->pid = -1;
		c->upgrade_status = VEXO_FW_DRIVE_COMMAND_FAILED;
		VEXODriveBundleFWUpgradeConfigSet(VEXO_FW_UPGRADE_WORKING_CONF, c);
		appendResult(*c, "");
		vexo::sysroot::unlink(pidFileOf(devName(c->drive_path)).c_str());
	}
}

} // namespace

extern "C" {

VEXO_API int VEXODriveBundleFWUpgrade(const char *drive, const char *firmwareFile, int timeout, int *downloadRetries,
				      int *activateRetries)
try {
	if (!drive || !firmwareFile || !downloadRetries || !activateRetries) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char path[PATH_MAX];
	if (VLIBCStrSnprintf(path, sizeof(path), VEXO_FW_UPGRADE_DIR "%s", firmwareFile) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to snprintf by %s", VEXO_AT, firmwareFile);
		return -1;
	}
	gSecondsLeft = updateTimeout(timeout);
	// The tool opens the image itself, so it gets the host's path of it.
	const std::string image = vexo::sysroot::path(path);
	Argv download, activate;
	switch (VEXODiskScsiProtocolGet(drive)) {
	case VEXO_DISK_PROTOCOL_ATA:
	case VEXO_DISK_PROTOCOL_SAT:
		download = {kHdparm, "--fwdownload-modee", image.c_str(), "--yes-i-know-what-i-am-doing",
			    "--please-destroy-my-drive", drive};
		activate = {kHdparm, "--fwactivate", drive};
		break;
	case VEXO_DISK_PROTOCOL_NVME:
		download = {kNvme, "fw-download", drive, "-f", image.c_str()};
		activate = {kNvme, "fw-activate", drive, "-s", "1", "-a", "3"};
		break;
	default:
		download = {kHdparm, "--fwdownload-modee", image.c_str(), "--yes-i-know-what-i-am-doing",
			    "--please-destroy-my-drive", drive};
		activate = {kHdparm};
		break;
	}
	int dl = 0, act = 0;
	int result = runWithRetries(download, &dl);
	if (result == 0)
		result = runWithRetries(activate, &act);
	*downloadRetries = dl;
	*activateRetries = act;
	return result == 0 ? 0 : -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeFirmwareBinaryValidate(const char *firmwareFile)
try {
	if (!firmwareFile || !firmwareFile[0] || std::strchr(firmwareFile, '/')) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char path[PATH_MAX], info[PATH_MAX + 16];
	if (VLIBCStrSnprintf(path, sizeof(path), VEXO_FW_UPGRADE_DIR "%s", firmwareFile) < 0 ||
	    VLIBCStrSnprintf(info, sizeof(info), "%s.FW_INFO", path) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to snprintf by %s", VEXO_AT, firmwareFile);
		return -1;
	}
	bool good = false;
	char md5[64] = "";
	if (pathExists(path) && pathExists(info)) {
		if (VLIBCFileGetKeyValue(info, "md5sum", md5, sizeof(md5), 0) <= 0)
			vlog(LOG_ERR, "%s:%d Failed to get FW MD5 cksum in %s", VEXO_AT, info);
		else if (VEXOHWCTLMiscFileMD5sumMatch(path, md5) != 1)
			vlog(LOG_ERR, "%s:%d Failed to match the cksum of firmware %s with the cksum in %s", VEXO_AT, path,
			     info);
		else
			good = true;
	}
	if (good)
		return 1;
	// The next download starts clean.
	ENTERCriticalSection;
	for (const char *p : {static_cast<const char *>(path), static_cast<const char *>(info)})
		if (vexo::sysroot::unlink(p) != 0 && errno != ENOENT)
			vlog(LOG_ERR, "%s:%d Failed to remove %s", VEXO_AT, p);
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int DBFWUpgradeByConfig(const char *configPath, int atEarlyBootup, int updateStatus)
try {
	if (!configPath) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// The state is claimed before the working file is written: a second
	// run started meanwhile is refused without touching the first one's.
	if (checkAndSetState(VEXO_FW_UPGRADE_GOING_TO_START, VEXO_FW_UPGRADE_UPGRADING_ALL) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to check and set upgrade state", VEXO_AT);
		return -1;
	}
	if (VEXODriveBundleCheckDirExistOrCreate(kRunDir) != 0 || !copyFile(configPath, VEXO_FW_UPGRADE_WORKING_CONF)) {
		vlog(LOG_ERR, "%s:%d Failed to cp %s to %s", VEXO_AT, configPath, VEXO_FW_UPGRADE_WORKING_CONF);
		checkAndSetState(VEXO_FW_UPGRADE_UPGRADING_ALL, VEXO_FW_UPGRADE_GOING_TO_START);
		return -1;
	}
	int ret = 0;
	DB_FW_UPGRADE_CONFIG *list = nullptr;
	int count = VEXODriveBundleFWUpgradeConfigGet(VEXO_FW_UPGRADE_WORKING_CONF, &list);
	if (count < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get firmware upgrade config[%s]", VEXO_AT, VEXO_FW_UPGRADE_WORKING_CONF);
		ret = -1;
	} else if (count > 0) {
		// The pending versions are asked once here rather than by every child.
		int hasUpdate = 0, hasPromotion = 0;
		char update[32] = "", promotion[32] = "";
		if (updateStatus && VEXOFirmStatusVOSUpgradeCacheGet(&hasUpdate, update, sizeof(update), &hasPromotion,
								     promotion, sizeof(promotion)) != 0) {
			vlog(LOG_WARNING, "%s:%d Fail to get VOS version", VEXO_AT);
			hasUpdate = hasPromotion = 0;
		}
		const RunOptions opts{atEarlyBootup, updateStatus, hasUpdate ? update : nullptr,
				      hasPromotion ? promotion : nullptr};
		const int budget = updateTimeout(kDefaultTimeout) + kGraceSeconds;
		for (DB_FW_UPGRADE_CONFIG *c = list; c; c = c->next) {
			c->pid = -1;
			if (c->upgrade_status != VEXO_FW_DRIVE_NOT_STARTED) {
				vlog(LOG_ERR, "%s:%d Firmware upgrade status[%d] was unexpected", VEXO_AT, c->upgrade_status);
				continue;
			}
			if (!pathExists(c->drive_path)) {
				vlog(LOG_ERR, "%s:%d Failed to upgrade firmware of %s because the drive path[%s] did not exist",
				     VEXO_AT, c->id, c->drive_path);
				failBeforeStart(*c);
				continue;
			}
			pid_t pid = VLIBCProcFork();
			if (pid < 0) {
				vlog(LOG_ERR, "%s:%d Fail to fork for %s", VEXO_AT, c->drive_path);
				vlog(LOG_ERR, "%s:%d Failed to fork to upgrade firmware for %s in %s", VEXO_AT, c->drive_path,
				     configPath);
				failBeforeStart(*c);
				continue;
			}
			if (pid == 0) {
				// The binary is checked here, before the drive is touched: the
				// checksums of all drives then take the time of one.
				if (VEXODriveBundleFWUpgradeFirmwareBinaryValidate(c->available_firmware_binary) != 1 ||
				    !modelFits(*c)) {
					vlog(LOG_ERR,
					     "%s:%d Failed to upgrade firmware of %s because the firmware[%s] check failed",
					     VEXO_AT, c->drive_path, c->available_firmware_binary);
					failBeforeStart(*c);
					std::_Exit(0);
				}
				if (flashOne(*c, opts) != 0)
					vlog(LOG_ERR, "%s:%d Failed upgrade firmware of %s", VEXO_AT, c->drive_path);
				std::_Exit(0);
			}
			c->pid = pid;
		}
		waitAll(list, budget);
		if (!copyFile(VEXO_FW_UPGRADE_WORKING_CONF, configPath)) {
			vlog(LOG_ERR, "%s:%d Failed to cp %s to %s", VEXO_AT, VEXO_FW_UPGRADE_WORKING_CONF, configPath);
			ret = -1;
		} else if (!atEarlyBootup && VEXODriveBundleFWupgradeLogUpgradeResults(configPath) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to check the results of config %s", VEXO_AT, configPath);
			ret = -1;
		}
	}
	VEXODriveBundleFWUpgradeConfigFree(list);
	const int next = atEarlyBootup == 1 ? VEXO_FW_UPGRADE_POST_HANDLE : VEXO_FW_UPGRADE_DO_NOTHING;
	if (checkAndSetState(VEXO_FW_UPGRADE_UPGRADING_ALL, next) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to check and set upgrade state", VEXO_AT);
		ret = -1;
	}
	if (vexo::sysroot::unlink(VEXO_FW_UPGRADE_WORKING_CONF) != 0)
		vlog(LOG_ERR, "%s:%d Failed to unlink %s, errno=%d", VEXO_AT, VEXO_FW_UPGRADE_WORKING_CONF, errno);
	return ret;
} VEXO_C_CATCH(-1)

VEXO_API int DBFWUpgradeByConfigAndPrepareSummary(const char *mode)
try {
	int early = 0, update = 0;
	if (mode && std::strcmp(mode, "update-status") == 0) {
		update = 1;
	} else if (mode && std::strcmp(mode, "not-update-status") == 0) {
	} else if (mode && std::strcmp(mode, "at-early-bootup") == 0) {
		early = 1;
		if (VEXODriveBundleFWUpgradeStateGoingToStartChange(1) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to change to going_to_start state", VEXO_AT);
			return -1;
		}
	} else {
		vlog(LOG_ERR, "%s:%d Unknown mode %s", VEXO_AT, mode ? mode : "(null)");
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char plan[PATH_MAX];
	if (DBRealityPathGet(VEXO_FW_UPGRADE_CURRENT_LINK, plan, sizeof(plan)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get reality path of %s", VEXO_AT, VEXO_FW_UPGRADE_CURRENT_LINK);
		return -1;
	}
	// Written first, so that a reboot in the middle still leads to a summary.
	if (VEXODriveBundleFWUpgradeNotificationSet(1, plan) != 0)
		vlog(LOG_ERR, "%s:%d Failed to set send notification", VEXO_AT);
	if (VEXODriveBundleFWUpgradeLaunchSummarySet(1, plan) != 0)
		vlog(LOG_ERR, "%s:%d Failed to set launch summary", VEXO_AT);
	if (DBFWUpgradeByConfig(plan, early, update) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to upgrade firmware by %s", VEXO_AT, plan);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWUpgradeByConfig(void)
try {
	int ret = VLIBCExecl(kBundleTool, kBundleTool, "--upgrade-firmware", "--start-by-config-and-prepare-summary",
			     "update-status", static_cast<char *>(nullptr));
	if (ret != 0) {
		vlog(LOG_ERR, "%s:%d Failed to execute %s to %s, err=%d", VEXO_AT, kBundleTool, "upgrade-firmware", ret);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODriveBundleFWupgradeLogUpgradeResults(const char *configPath)
try {
	if (!configPath) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	DB_FW_UPGRADE_CONFIG *list = nullptr;
	if (VEXODriveBundleFWUpgradeConfigGet(configPath, &list) < 0)
		return -1;
	int ret = 0;
	for (DB_FW_UPGRADE_CONFIG *c = list; c; c = c->next)
		if (!recordResult(*c))
			ret = -1;
	VEXODriveBundleFWUpgradeConfigFree(list);
	return ret;
} VEXO_C_CATCH(-1)

} // extern "C"
