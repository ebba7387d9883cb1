// The SCT status log's temperature and whether a drive has SCT commands,
// both asked through the sg3-utils tools so that bridges which only pass
// ATA PASS-THROUGH from those tools still answer.
#include <cstdio>
#include <cstring>
#include <string>
#include <vexohw/disk_state.h>
#include <vexohw/smart_temperature.h>
#include <vexoplatform/vexocore.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/exec.h"
#include "frame/sysroot.h"
#include "frame/unique.h"
#include "smartctl/sg_dump_read.h"

namespace {

constexpr const char *kSgRaw = "/usr/vexo/bin/sg_raw";
constexpr const char *kSgSatIdentify = "/usr/vexo/bin/sg_sat_identify";
// A drive that does not answer is given up after this; the tools' own
// command timeouts are shorter.
constexpr int kToolTimeoutMs = 90 * 1000;

// Everything the tool printed: sg_raw writes its dump to standard error,
// sg_sat_identify to standard output.
bool runTool(const std::vector<std::string> &argv, std::string &text)
{
	vexo::exec::Options opts;
	opts.captureStderr = true;
	opts.timeoutMs = kToolTimeoutMs;
	vexo::exec::Result r = vexo::exec::run(argv, opts);
	if (!r.started || r.timedOut) {
		vlog(LOG_ERR, "%s:%d Failed to run %s", VEXO_AT, argv[0].c_str());
		return false;
	}
	text = r.out + "\n" + r.err;
	return true;
}

} // namespace

extern "C" {

VEXO_API int VEXODiskSCTCmdSupportCache(const char *path, int *support)
try {
	if (!path || !support) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string name = vexo::disk::physicalName(vexo::disk::shortName(path));
	std::string file = "/run/vexostorage/disks/" + name + "/sct_cmd_support";
	vexo::UniqueFile f(vexo::sysroot::fopen(file.c_str(), "r"));
	if (!f) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	int v = 0;
	if (std::fscanf(f.get(), "%d", &v) != 1) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	*support = v > 0 ? 1 : 0;
	return 0;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSCTTemperatureGet(const char *path)
try {
	int support = 0;
	if (!path || VEXODiskSCTCmdSupportCache(path, &support) != 0 || !support)
		return -1;
	std::string dev = vexo::disk::devicePath(path);
	// READ LOG EXT (ATA PASS-THROUGH(16), PIO in) of one sector of log
	// 0xe0, the SCT status.
	std::vector<std::string> argv = {kSgRaw, "-r", "512", dev, "85", "08", "0e", "00", "00", "00", "01", "00",
					 "e0", "00", "00", "00", "00", "00", "2f", "00"};
	std::string text;
	if (!runTool(argv, text))
		return -1;
	return vexo::smart::sctTemperatureFromDump(text);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSCTCmdSupport(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char value[16] = {};
	if (VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "support_sct_cmd", value, sizeof(value), 0) <= 0 ||
	    std::strcmp(value, "yes") != 0)
		return 0;
	if (VEXODiskIsSata(path) <= 0 || VEXODiskInSCTCmdBlackList(path))
		return 0;
	std::string text;
	if (!runTool({kSgSatIdentify, vexo::disk::devicePath(path)}, text))
		return -1;
	int r = vexo::smart::sctSupportFromIdentifyDump(text);
	if (r < 0)
		vlog(LOG_ERR, "%s:%d Failed to read IDENTIFY word 206 of %s", VEXO_AT, path);
	return r;
} VEXO_C_CATCH(-1)

} // extern "C"
