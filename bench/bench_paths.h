// Where a benchmark finds the build it belongs to and the source tree
// (for the example boxes): the build from its own executable's path, the
// source from that build's CMake cache.
#pragma once

#include <climits>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace vexo::bench {

inline std::string buildDir()
{
	char self[PATH_MAX];
	ssize_t n = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
	if (n <= 0)
		return ".";
	self[n] = '\0';
	return std::filesystem::path(self).parent_path().parent_path().string();
}

inline std::string sourceDir()
{
	std::ifstream in(buildDir() + "/CMakeCache.txt");
	for (std::string l; std::getline(in, l);)
		if (l.rfind("vexohw_SOURCE_DIR:STATIC=", 0) == 0)
			return l.substr(25);
	return ".";
}

} // namespace vexo::bench
