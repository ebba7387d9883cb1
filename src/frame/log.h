// The log seam. Every line of the library and the platform layer goes
// through vexo::log::write: to syslog by default, or, when VEXO_LOG is
// "stderr" or a file path, as "<PRI>message\n" to that place (one write per
// line, so lines from several processes never interleave). A set-user-id
// program ignores VEXO_LOG (secure_getenv) and logs to syslog.
#pragma once

#include <cstddef>
#include <syslog.h>

namespace vexo::log {

// The source path relative to src/ (or platform/, tools/, sim/) without its
// extension, computed at compile time from __FILE__:
// ".../src/disk/disk_get_cache_file.cpp" -> "disk/disk_get_cache_file".
template <std::size_t N>
struct SrcPath {
	char s[N]{};
	constexpr explicit SrcPath(const char (&file)[N])
	{
		constexpr const char *roots[] = {"/src/", "/platform/", "/tools/", "/sim/", "/tests/", "/fuzz/", "/bench/"};
		std::size_t begin = 0;
		for (std::size_t i = 0; i + 1 < N; ++i) {
			for (const char *r : roots) {
				std::size_t k = 0;
				while (r[k] && i + k + 1 < N && file[i + k] == r[k])
					++k;
				if (!r[k])
					begin = i + k;
			}
		}
		std::size_t end = N - 1;
		for (std::size_t i = begin; i + 1 < N; ++i)
			if (file[i] == '.')
				end = i;
			else if (file[i] == '/')
				end = N - 1;
		std::size_t o = 0;
		for (std::size_t i = begin; i < end; ++i)
			s[o++] = file[i];
		s[o] = '\0';
	}
};

void write(int priority, const char *format, ...) __attribute__((format(printf, 2, 3)));

} // namespace vexo::log

#define VEXO_SRC                                                                  \
	([]() -> const char * {                                                   \
		static constexpr ::vexo::log::SrcPath<sizeof(__FILE__)> p(__FILE__); \
		return p.s;                                                       \
	}())

// The two leading arguments of every "%s:%d ..." line.
#define VEXO_AT VEXO_SRC, __LINE__

// vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
#define vlog(priority, ...) ::vexo::log::write((priority), __VA_ARGS__)
