// The bundled twelve-bay box as the simulator builds it, in the fuzz root,
// with the hostile drive (hostile_drive.cpp) as the device backend:
// VEXO_DEVICE_BACKEND names it before the library opens any device, and
// feed() hands it the answers of one run. Targets over files overwrite the
// box's files with the input.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <vector>

#include "fuzz_root.h"

extern char **environ;

namespace vexo::fuzz {

using FeedFn = void (*)(const uint8_t *, size_t);

// Builds the box into the fuzz root once, and loads the hostile drive.
// Aborts when either cannot be had: a target that fuzzes nothing must not
// pass.
inline FeedFn hostileDrive()
{
	static const FeedFn feed = [] {
		const std::string dir = root();
		setenv("VEXO_LOG", "/dev/null", 1);
		setenv("VEXO_FUZZ_DRIVE_REAL", VEXO_FUZZ_SIM_DRIVE_SO, 1);
		const char *argv[] = {VEXO_FUZZ_VEXOSIM, "build", VEXO_FUZZ_SOURCE_DIR "/examples/box12.json", dir.c_str(),
				      nullptr};
		pid_t pid;
		int st = 0;
		if (posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char **>(argv), environ) != 0 ||
		    waitpid(pid, &st, 0) != pid || !WIFEXITED(st) || WEXITSTATUS(st) != 0)
			std::abort();
		setenv("VEXO_DEVICE_BACKEND", VEXO_FUZZ_DRIVE_SO, 1);
		void *h = dlopen(VEXO_FUZZ_DRIVE_SO, RTLD_NOW);
		auto fn = h ? reinterpret_cast<FeedFn>(dlsym(h, "vexo_fuzz_drive_feed")) : nullptr;
		if (!fn)
			std::abort();
		return fn;
	}();
	return feed;
}

// Writes bytes to an appliance path of the box, creating nothing else.
inline void put(const std::string &appliancePath, const uint8_t *data, size_t size)
{
	writeInput(appliancePath.c_str(), data, size);
}

// The pieces of an input cut at each NUL byte (at most n; the last takes
// the rest).
inline std::vector<std::string_view> pieces(const uint8_t *data, size_t size, size_t n)
{
	std::vector<std::string_view> out;
	std::string_view s(reinterpret_cast<const char *>(data), size);
	while (out.size() + 1 < n) {
		size_t z = s.find('\0');
		if (z == std::string_view::npos)
			break;
		out.push_back(s.substr(0, z));
		s.remove_prefix(z + 1);
	}
	out.push_back(s);
	out.resize(n);
	return out;
}

// A text the library filled must end inside its buffer.
inline void terminated(const char *s, size_t size)
{
	size_t n = 0;
	while (n < size && s[n])
		++n;
	if (n == size)
		std::abort();
}

// The same for a text a call wrote when it says it did (rc 0).
inline void filled(int rc, const char *s, size_t size)
{
	if (rc == 0)
		terminated(s, size);
}

// A firmware and serial reader: both texts end inside their buffers.
template <class Read>
inline void firmAndSerial(Read read, const char *path)
{
	char fw[16], sn[32];
	if (read(path, fw, sizeof(fw), sn, sizeof(sn)) == 0) {
		terminated(fw, sizeof(fw));
		terminated(sn, sizeof(sn));
	}
}

} // namespace vexo::fuzz
