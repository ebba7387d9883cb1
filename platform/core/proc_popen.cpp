// Streams over a child's standard output or input. Each open stream is
// remembered with its child so that VLIBCPclose reaps exactly that child,
// whatever else the process has running.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/exec.h"
#include "proc_args.h"

namespace {

std::mutex gMutex;
// Never destroyed: streams may be closed from exit handlers.
auto *gChildren = new std::map<FILE *, vexo::exec::Child>;

FILE *openStream(const std::vector<std::string> &argv, const char *mode)
{
	// "r" or "w", optionally with 'e' (close-on-exec, which the seam's pipes are anyway).
	if (!mode || (mode[0] != 'r' && mode[0] != 'w') || (mode[1] && std::strcmp(mode + 1, "e") != 0)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	const bool reading = mode[0] == 'r';
	vexo::exec::Options opts;
	// Diagnostics come with the output, as callers log what the tool said.
	opts.captureStderr = reading;
	vexo::exec::Child child = vexo::exec::Child::spawn(argv, reading, opts);
	if (!child.valid()) {
		vlog(LOG_ERR, "%s:%d Failed to start %s. errno=%m", VEXO_AT, argv[0].c_str());
		VEXO_ERR(VEXO_ERR_FOPEN);
		return nullptr;
	}
	FILE *stream = ::fdopen(child.fd(), reading ? "r" : "w");
	if (!stream) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return nullptr; // the child is killed and reaped with its owner
	}
	child.releaseFd();
	std::lock_guard<std::mutex> g(gMutex);
	gChildren->emplace(stream, std::move(child));
	return stream;
}

} // namespace

extern "C" {

VEXOP_API FILE *VLIBCPopen(const char *program, const char *mode, const char *arg0, ...)
try {
	if (!program || program[0] != '/') {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	va_list ap;
	va_start(ap, arg0);
	auto argv = vexo::core::argvFrom(program, arg0, ap);
	va_end(ap);
	return openStream(argv, mode);
} VEXO_C_CATCH(nullptr)

VEXOP_API FILE *VLIBCPopenv(const char *program, const char *mode, char *const argv[])
try {
	if (!program || program[0] != '/') {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return nullptr;
	}
	return openStream(vexo::core::argvFrom(program, argv), mode);
} VEXO_C_CATCH(nullptr)

VEXOP_API int VLIBCPclose(FILE *stream)
try {
	vexo::exec::Child child;
	{
		std::lock_guard<std::mutex> g(gMutex);
		auto it = stream ? gChildren->find(stream) : gChildren->end();
		if (it == gChildren->end()) {
			// Not ours: leave it to whoever opened it.
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		child = std::move(it->second);
		gChildren->erase(it);
	}
	// Closing first lets a writer-fed child see end of input and finish.
	std::fclose(stream);
	return child.wait();
} VEXO_C_CATCH(-1)

} // extern "C"
