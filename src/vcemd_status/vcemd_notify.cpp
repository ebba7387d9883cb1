// One-word notifications to the platform daemon: three real signals, and
// every other number through the daemon's connector tool.
#include <cerrno>
#include <string>
#include <vexohw/vcemd.h>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/proc.h"

extern "C" VEXO_API int VLIBVcemdNotify(int number) try {
	if (number == 15 || number == 18 || number == 20) {
		// Held by the pid file and the process name, so a pid recycled
		// by another program is never signalled.
		pid_t pid = 0;
		switch (vexo::proc::signalByPidFile(VEXO_VCEMD_PID_FILE, number, "vcemd", &pid)) {
		case vexo::proc::Signal::Sent:
		case vexo::proc::Signal::NoPidFile:
		case vexo::proc::Signal::BadPidFile:
			return 0;
		case vexo::proc::Signal::NotRunning:
			vlog(LOG_ERR, "%s:%d vcemd (pid %d) is not running, signal %d not sent", VEXO_AT, (int)pid, number);
			return -1;
		case vexo::proc::Signal::OtherProgram:
			vlog(LOG_ERR, "%s:%d pid %d of %s is not vcemd, signal %d not sent", VEXO_AT, (int)pid,
			     VEXO_VCEMD_PID_FILE, number);
			return -1;
		case vexo::proc::Signal::Failed:
			vlog(LOG_ERR, "%s:%d Fail to send signal %d to vcemd (pid %d): %m", VEXO_AT, number, (int)pid);
			return -1;
		}
		return -1;
	}
	std::string text = std::to_string(number);
	char program[] = VEXO_VCEMD_CONNECTOR_TOOL;
	char flag[] = "-signal";
	char *argv[] = {program, flag, text.data(), nullptr};
	return VLIBCExecv(VEXO_VCEMD_CONNECTOR_TOOL, argv) == 0 ? 0 : -1;
}
VEXO_C_CATCH(-1)
