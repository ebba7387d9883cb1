// A temporary appliance root of the fuzz run's own: VEXO_SYSROOT points at
// it, and each input lands in one file under it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace vexo::fuzz {

inline const std::string &root()
{
	static const std::string r = [] {
		// In memory when the box has it: a disk file system flushes a file
		// that is truncated and rewritten, at every run.
		char shm[] = "/dev/shm/vexo_fuzz.XXXXXX";
		char tmpl[] = "/tmp/vexo_fuzz.XXXXXX";
		std::string dir = mkdtemp(shm) ? shm : mkdtemp(tmpl) ? tmpl : "/tmp";
		setenv("VEXO_SYSROOT", dir.c_str(), 1);
		// The root goes with the run.
		static std::string gone = dir;
		if (gone != "/tmp")
			std::atexit([] {
				std::error_code ec;
				std::filesystem::remove_all(gone, ec);
			});
		return dir;
	}();
	return r;
}

// Writes the input to <root><appliancePath>; the parent folder must exist.
inline void writeInput(const char *appliancePath, const uint8_t *data, size_t size)
{
	std::ofstream f(root() + appliancePath, std::ios::binary | std::ios::trunc);
	f.write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
}

} // namespace vexo::fuzz
