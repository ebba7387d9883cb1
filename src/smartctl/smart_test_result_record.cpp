// SmartTestResultRecord: closes the record of a finished self-test. The
// test tool left the test's type in smart_testing and its time and status
// under the _NEW keys; here they become the disk's last result, the event
// goes to the system log, and smart_testing is emptied.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/logdb.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/cache_keys.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "smartctl/self_test.h"

using namespace vexo::selftest;

namespace {

constexpr int kEventExtendedSuggested = 18;

// lockf on a lock file, released when the descriptor closes.
class LockfGuard {
public:
	explicit LockfGuard(const char *path)
	{
		vexo::sysroot::mkdir("/run/lock", 0755);
		fd_.reset(vexo::sysroot::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
		if (!fd_ || ::lockf(fd_.get(), F_LOCK, 0) != 0) {
			vlog(LOG_ERR, "%s:%d Failed to open lock file %s", VEXO_AT, path);
			fd_.reset();
		}
	}

private:
	vexo::UniqueFd fd_;
};

// Moves key_NEW to key in a key-value file; value overrides the moved text.
void moveNew(const char *file, const std::string &key, const char *value)
{
	char v[64] = {};
	if (VLIBCFileGetKeyValue(file, (key + "_NEW").c_str(), v, sizeof(v), 0) < 0)
		return;
	if (VLIBCFileRemoveKey(file, (key + "_NEW").c_str()) != 1)
		return;
	VLIBCFileSetKeyValue(file, key.c_str(), value ? value : v, nullptr);
}

bool hasKey(const char *file, const std::string &key)
{
	PVLIBSZHASH hash = nullptr;
	bool found = VLIBCFileGetKeyValueAll(file, &hash) >= 0 && hash && VLIBCSzHashGetValue(hash, key.c_str());
	if (hash)
		VLIBCSzHashFree(hash);
	return found;
}

} // namespace

extern "C" {

VEXO_API int SmartTestResultRecord(const char *name)
try {
	if (!name || !*name) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const std::string shortName = VEXODiskDevPrefixSkip(name);
	const std::string path = "/dev/" + shortName;
	SmartTestLog log{};
	if (SMARTSelfTestLogRead(path.c_str(), &log) != 0) {
		vlog(LOG_ERR, "%s:%d Error: Failed to get smart test log %s", VEXO_AT, path.c_str());
		return -1;
	}
	const std::string testingFile = std::string(vexo::cache::kDisksDir) + "/" + shortName + "/smart_testing";
	char type[32] = {};
	{
		vexo::UniqueFd fd(vexo::sysroot::open(testingFile.c_str(), O_RDONLY | O_CLOEXEC));
		if (!fd) {
			vlog(LOG_ERR, "%s:%d Error: Failed to open %s for read", VEXO_AT, testingFile.c_str());
			return -1;
		}
		ssize_t n = ::read(fd.get(), type, sizeof(type) - 1);
		if (n <= 0) {
			vlog(LOG_ERR, "%s:%d Error: Failed to get test type from %s", VEXO_AT, testingFile.c_str());
			return -1;
		}
		type[n] = '\0';
		type[std::strcspn(type, "\r\n")] = '\0';
	}
	const char *file = logFileOf(type);
	if (!file)
		return 0;
	unsigned result = std::strcmp(type, "quick") == 0 ? log.quickResult : log.extendResult;

	char firmware[64] = {}, serial[64] = {}, model[64] = {};
	std::string sn = SmartFirmAndSerialRead(path.c_str(), firmware, sizeof(firmware), serial, sizeof(serial)) == 0
				 ? std::string(serial)
				 : path;
	{
		ENTERCriticalSection;
		LockfGuard lock(lockFileOf(type));
		if (hasKey(file, sn + "_TIME_NEW"))
			moveNew(file, sn + "_TIME", nullptr);
		if (hasKey(file, sn + "_STATUS_NEW"))
			moveNew(file, sn + "_STATUS", std::to_string(result).c_str());
	}

	if (VEXOLnxDiskGetModel(path.c_str(), model, sizeof(model)) != 0)
		model[0] = '\0';
	char timeText[64] = {};
	long when = 0;
	if (VLIBCFileGetKeyValue(file, (sn + "_TIME").c_str(), timeText, sizeof(timeText), 0) <= 0)
		vlog(LOG_ERR, "%s:%d Error: Failed to get smart test time", VEXO_AT);
	else
		when = std::strtol(timeText, nullptr, 10);
	char seconds[32];
	std::snprintf(seconds, sizeof(seconds), "%ld", when);

	int event;
	switch (log.latestResult) {
	case SMART_TEST_RESULT_COMPLETED:
	case SMART_TEST_RESULT_ABORTED:
	case SMART_TEST_RESULT_INTERRUPTED:
	case SMART_TEST_RESULT_DAMAGE:
		event = static_cast<int>(log.latestResult);
		break;
	case SMART_TEST_RESULT_EXTENDED_SUGGESTED:
		event = kEventExtendedSuggested;
		break;
	default:
		vlog(LOG_ERR, "%s:%d invalid result %d on %s", VEXO_AT, static_cast<int>(log.latestResult), path.c_str());
		return -1;
	}
	if (VLIBLogSetByVA("disk_test", event, model, sn.c_str(), path.c_str(), seconds, "smart", type,
			   static_cast<const char *>(nullptr)) != 0)
		vlog(LOG_ERR, "%s:%d Error: Failed to add log to log center", VEXO_AT);

	vexo::UniqueFd out(vexo::sysroot::open(testingFile.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
	if (!out) {
		vlog(LOG_ERR, "%s:%d Error: Failed to open %s for write", VEXO_AT, testingFile.c_str());
		return -1;
	}
	return 0;
}
VEXO_C_CATCH(-1)

} // extern "C"
