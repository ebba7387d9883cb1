#include "text_file.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexo::core {

bool readLines(const char *file, std::vector<std::string> &lines)
{
	UniqueFd fd(sysroot::open(file, O_RDONLY | O_CLOEXEC));
	if (!fd) {
		VEXO_ERR(errno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_FOPEN);
		return false;
	}
	std::string text;
	char buf[8192];
	for (;;) {
		ssize_t got = ::read(fd.get(), buf, sizeof(buf));
		if (got < 0 && errno == EINTR)
			continue;
		if (got < 0) {
			VEXO_ERR(VEXO_ERR_READ);
			return false;
		}
		if (got == 0)
			break;
		text.append(buf, static_cast<size_t>(got));
	}
	lines.clear();
	size_t start = 0;
	while (start < text.size()) {
		size_t nl = text.find('\n', start);
		if (nl == std::string::npos) {
			lines.emplace_back(text.substr(start));
			break;
		}
		lines.emplace_back(text.substr(start, nl - start));
		start = nl + 1;
	}
	return true;
}

bool replaceFile(const char *file, std::string_view content)
{
	static std::atomic<unsigned> counter{0};
	// Unique per process and call, so that writers never share a temporary.
	std::string tmp = std::string(file) + ".tmp." + std::to_string(::getpid()) + "." +
			  std::to_string(counter.fetch_add(1));
	mode_t mode = 0644;
	struct stat st;
	if (sysroot::stat(file, &st) == 0)
		mode = st.st_mode & 07777;
	UniqueFd fd(sysroot::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
	if (!fd) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return false;
	}
	size_t done = 0;
	bool ok = true;
	while (done < content.size()) {
		ssize_t w = ::write(fd.get(), content.data() + done, content.size() - done);
		if (w < 0 && errno == EINTR)
			continue;
		if (w <= 0) {
			ok = false;
			break;
		}
		done += static_cast<size_t>(w);
	}
	// The mode is set explicitly: the umask must not narrow a file others read.
	if (ok && (::fchmod(fd.get(), mode) != 0 || ::fsync(fd.get()) != 0))
		ok = false;
	if (::close(fd.release()) != 0)
		ok = false;
	if (ok && sysroot::rename(tmp.c_str(), file) != 0)
		ok = false;
	if (!ok) {
		sysroot::unlink(tmp.c_str());
		VEXO_ERR(VEXO_ERR_WRITE);
	}
	return ok;
}

std::string joinLines(const std::vector<std::string> &lines)
{
	std::string out;
	for (const auto &l : lines) {
		out += l;
		out += '\n';
	}
	return out;
}

std::string_view trim(std::string_view s)
{
	constexpr std::string_view ws = " \t\r\n\v\f";
	size_t b = s.find_first_not_of(ws);
	if (b == std::string_view::npos)
		return {};
	size_t e = s.find_last_not_of(ws);
	return s.substr(b, e - b + 1);
}

bool parsePair(std::string_view line, std::string_view &key, std::string_view &value)
{
	std::string_view t = trim(line);
	if (t.empty() || t[0] == '#' || t[0] == ';' || t[0] == '[')
		return false;
	size_t eq = t.find('=');
	if (eq == std::string_view::npos)
		return false;
	key = trim(t.substr(0, eq));
	if (key.empty())
		return false;
	value = trim(t.substr(eq + 1));
	if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
		value = value.substr(1, value.size() - 2);
	return true;
}

bool parseSectionHeader(std::string_view line, std::string_view &name)
{
	std::string_view t = trim(line);
	if (t.size() < 2 || t.front() != '[' || t.back() != ']')
		return false;
	name = trim(t.substr(1, t.size() - 2));
	return true;
}

bool validKey(const char *key)
{
	if (!key)
		return false;
	std::string_view k(key);
	std::string_view t = trim(k);
	return !t.empty() && t.size() == k.size() && k.find_first_of("=\n\r") == std::string_view::npos &&
	       k[0] != '#' && k[0] != ';' && k[0] != '[';
}

bool validValue(const char *value) { return value && !std::strpbrk(value, "\n\r"); }

bool formatPair(const char *format, const char *key, const char *value, std::string &out)
{
	// Only "%s" (twice) and "%%" are allowed: the format comes from the caller
	// and must not make printf read arguments that are not there.
	int strings = 0;
	for (const char *p = format; *p; ++p) {
		if (*p != '%')
			continue;
		if (p[1] == '%') {
			++p;
			continue;
		}
		if (p[1] != 's')
			return false;
		++strings;
		++p;
	}
	if (strings != 2)
		return false;
	int n = std::snprintf(nullptr, 0, format, key, value);
	if (n < 0)
		return false;
	out.assign(static_cast<size_t>(n) + 1, '\0');
	std::snprintf(out.data(), out.size(), format, key, value);
	out.resize(static_cast<size_t>(n));
	if (out.empty() || out.back() != '\n')
		out += '\n';
	return true;
}

} // namespace vexo::core
