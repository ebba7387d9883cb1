// Running programs to completion through the exec seam: argument vectors,
// no shell, the program's output discarded.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/exec.h"
#include "proc_args.h"

namespace vexo::core {

std::vector<std::string> argvFrom(const char *program, const char *arg0, va_list ap)
{
	// The seam runs argv[0] by path, so the program stands in for arg0.
	std::vector<std::string> argv{program};
	if (arg0)
		while (const char *a = va_arg(ap, const char *))
			argv.emplace_back(a);
	return argv;
}

std::vector<std::string> argvFrom(const char *program, char *const argv[])
{
	std::vector<std::string> out{program};
	if (argv && argv[0])
		for (int i = 1; argv[i]; ++i)
			out.emplace_back(argv[i]);
	return out;
}

} // namespace vexo::core

namespace {

int runToEnd(const std::vector<std::string> &argv, int timeoutSeconds)
{
	vexo::exec::Options opts;
	// Without a limit the output is not read, so a daemon the program leaves
	// behind holding it cannot keep us waiting; with one, the pipe is what
	// the seam watches while it counts down.
	opts.captureStdout = timeoutSeconds > 0;
	opts.timeoutMs = timeoutSeconds > 0 ? timeoutSeconds * 1000 : -1;
	vexo::exec::Result r = vexo::exec::run(argv, opts);
	if (!r.started) {
		vlog(LOG_ERR, "%s:%d Failed to run %s: %s", VEXO_AT, argv[0].c_str(), std::strerror(r.spawnErrno));
		VEXO_ERR(r.spawnErrno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_FOPEN);
		return -1;
	}
	if (r.timedOut) {
		vlog(LOG_ERR, "%s:%d %s did not finish in %d seconds, killed", VEXO_AT, argv[0].c_str(), timeoutSeconds);
		VEXO_ERR(VEXO_ERR_TIMEOUT);
		return -1;
	}
	if (r.termSignal)
		vlog(LOG_ERR, "%s:%d %s died by signal %d", VEXO_AT, argv[0].c_str(), r.termSignal);
	return r.status();
}

bool badProgram(const char *program)
{
	if (program && program[0] == '/')
		return false;
	VEXO_ERR(VEXO_ERR_BAD_PARAM);
	return true;
}

} // namespace

extern "C" {

VEXOP_API int VLIBCExecl(const char *program, const char *arg0, ...)
try {
	if (badProgram(program))
		return -1;
	va_list ap;
	va_start(ap, arg0);
	auto argv = vexo::core::argvFrom(program, arg0, ap);
	va_end(ap);
	return runToEnd(argv, 0);
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCExecv(const char *program, char *const argv[])
try {
	if (badProgram(program))
		return -1;
	return runToEnd(vexo::core::argvFrom(program, argv), 0);
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCExec(char *const argv[])
try {
	if (!argv || badProgram(argv[0]))
		return -1;
	return runToEnd(vexo::core::argvFrom(argv[0], argv), 0);
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCTimedExecWithEnv(int seconds, const char *program, const char *arg0, ...)
try {
	if (badProgram(program))
		return -1;
	if (seconds < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	va_list ap;
	va_start(ap, arg0);
	auto argv = vexo::core::argvFrom(program, arg0, ap);
	va_end(ap);
	return runToEnd(argv, seconds);
} VEXO_C_CATCH(-1)

} // extern "C"
