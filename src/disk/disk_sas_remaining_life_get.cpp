// VEXODiskSASRemainingLifeGet: the life of a SAS SSD from the endurance
// indicator of its solid state media log page, as sg_logs prints it.
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vexohw/disk_probe.h>
#include <vexohw/remain_life.h>
#include <vexohw/smartctl.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/log.h"

namespace {

constexpr const char *kSgLogs = "/usr/vexo/sbin/sg_logs";
constexpr std::string_view kIndicator = "Percentage used endurance indicator:";
constexpr size_t kMaxLine = 1024;
constexpr int kTimeoutMs = 30000;

std::string_view trim(std::string_view s)
{
	while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r'))
		s.remove_prefix(1);
	while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
		s.remove_suffix(1);
	return s;
}

// The life from the indicator line: 100 less the percentage used, -1 when
// the figure is not a number or above 100.
int lifeFrom(std::string_view line)
{
	std::string figure(line.substr(kIndicator.size()));
	char *end = nullptr;
	errno = 0;
	long used = std::strtol(figure.c_str(), &end, 10);
	if (errno != 0 || end == figure.c_str() || used < 0 || used > 100)
		return -1;
	return static_cast<int>(100 - used);
}

} // namespace

extern "C" VEXO_API int VEXODiskSASRemainingLifeGet(const char *path, int *life)
try {
	if (!path || !life) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*life = -1;
	if (VEXODiskScsiProtocolGet(path) != VEXO_DISK_PROTOCOL_SCSI)
		return -1;
	vexo::exec::Options o;
	o.timeoutMs = kTimeoutMs;
	vexo::exec::Result r = vexo::exec::run({kSgLogs, path, "-p", "0x11"}, o);
	if (!r.started) {
		vlog(LOG_ERR, "%s:%d Failed to run %s", VEXO_AT, kSgLogs);
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	std::string_view out = r.out;
	while (!out.empty()) {
		size_t nl = out.find('\n');
		std::string_view line = out.substr(0, nl);
		out.remove_prefix(nl == std::string_view::npos ? out.size() : nl + 1);
		// A line longer than the reader's buffer is read in pieces; only a
		// piece at a line's start can begin with the indicator.
		line = trim(line.substr(0, kMaxLine - 1));
		if (line.substr(0, kIndicator.size()) == kIndicator) {
			*life = lifeFrom(line);
			if (*life >= 0)
				return 0;
			break;
		}
	}
	VEXO_ERR(VEXO_ERR_READ);
	return -1;
}
VEXO_C_CATCH(-1)
