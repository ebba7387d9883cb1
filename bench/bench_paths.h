// Where a benchmark finds the build it belongs to and the source tree
// (for the example boxes): the build from its own executable's path, the
// source from that build's CMake cache.
#pragma once

#include <climits>
#include <filesystem>
#include <fstream>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
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

// The 60-disk box built by vexosim into a fresh folder under /tmp (named
// after `tag`), removed again with the object. ok is false when the build
// failed.
struct BuiltBox60 {
	std::string dir, root;
	bool ok = false;
	explicit BuiltBox60(const std::string &tag)
	{
		std::string t = "/tmp/vexo-bench-" + tag + ".XXXXXX";
		dir = ::mkdtemp(t.data()) ? t : std::string();
		if (dir.empty())
			return;
		root = dir + "/root";
		const std::string exe = buildDir() + "/bin/vexosim", desc = sourceDir() + "/examples/box60.json";
		pid_t pid = ::fork();
		if (pid == 0) {
			if (!::freopen("/dev/null", "w", stdout) || !::freopen("/dev/null", "w", stderr))
				::_exit(127);
			::execl(exe.c_str(), exe.c_str(), "build", desc.c_str(), root.c_str(), static_cast<char *>(nullptr));
			::_exit(127);
		}
		int st = 0;
		ok = pid > 0 && ::waitpid(pid, &st, 0) == pid && WIFEXITED(st) && WEXITSTATUS(st) == 0;
	}
	~BuiltBox60()
	{
		if (!dir.empty())
			std::filesystem::remove_all(dir);
	}
	BuiltBox60(const BuiltBox60 &) = delete;
	BuiltBox60 &operator=(const BuiltBox60 &) = delete;
};

} // namespace vexo::bench
