// Key-value file readers.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unordered_map>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/text.h"
#include "text_file.h"

namespace vexo::core {

namespace {

// The system settings files are asked dozens of times per disk (product
// questions, port masks, tool switches) and change almost never, so a
// process keeps each one parsed and checks with one stat that the file is
// still the one it parsed. Any other file is read on every call.
bool cached(const char *file)
{
	return std::strcmp(file, "/etc.defaults/vexoinfo.conf") == 0 || std::strcmp(file, "/etc/vexoinfo.conf") == 0;
}

bool sameTime(const timespec &a, const timespec &b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

long long nanos(const timespec &t) { return t.tv_sec * 1000000000LL + t.tv_nsec; }

// File times come from a clock that ticks coarsely: a rewrite within the
// tick of the parsed version could keep its times and size. A parse is
// trusted only once its file's times lie well before the read began.
constexpr long long kTimeTickNs = 50'000'000;

struct Parsed {
	dev_t dev = 0;
	ino_t ino = 0;
	off_t size = -1;
	timespec mtime{}, ctime{};
	bool settled = false;
	std::unordered_map<std::string, std::string> pairs; // first line of a key wins
};

struct ParsedFiles {
	std::mutex lock;
	std::unordered_map<std::string, Parsed> byPath; // host path: the root may change
};

ParsedFiles &parsedFiles()
{
	static ParsedFiles *p = new ParsedFiles; // lives to the end: callers may ask from exit handlers
	return *p;
}

bool matches(const Parsed &p, const struct stat &st)
{
	return p.settled && p.dev == st.st_dev && p.ino == st.st_ino && p.size == st.st_size &&
	       sameTime(p.mtime, st.st_mtim) && sameTime(p.ctime, st.st_ctim);
}

// 1, 0 or -1 as findValue.
int findCached(const char *file, const char *key, std::string &value)
{
	const std::string host = sysroot::path(file);
	ParsedFiles &files = parsedFiles();
	struct stat st {};
	if (::stat(host.c_str(), &st) == 0) {
		std::lock_guard<std::mutex> g(files.lock);
		auto it = files.byPath.find(host);
		if (it != files.byPath.end() && matches(it->second, st)) {
			auto kv = it->second.pairs.find(key);
			if (kv == it->second.pairs.end())
				return 0;
			value = kv->second;
			return 1;
		}
	}
	timespec began{};
	::clock_gettime(CLOCK_REALTIME, &began);
	std::vector<std::string> lines;
	if (!readLines(file, lines)) {
		VEXO_ERR_PASS();
		std::lock_guard<std::mutex> g(files.lock);
		files.byPath.erase(host);
		return -1;
	}
	Parsed p;
	for (const auto &line : lines) {
		std::string_view k, v;
		if (parsePair(line, k, v))
			p.pairs.emplace(std::string(k), std::string(v));
	}
	// Stat after the read: if the file changed meanwhile the times are new
	// and the parse is not trusted.
	if (::stat(host.c_str(), &st) == 0) {
		p.dev = st.st_dev;
		p.ino = st.st_ino;
		p.size = st.st_size;
		p.mtime = st.st_mtim;
		p.ctime = st.st_ctim;
		p.settled = nanos(began) - std::max(nanos(st.st_mtim), nanos(st.st_ctim)) > kTimeTickNs;
	}
	int found = 0;
	if (auto kv = p.pairs.find(key); kv != p.pairs.end()) {
		value = kv->second;
		found = 1;
	}
	std::lock_guard<std::mutex> g(files.lock);
	files.byPath[host] = std::move(p);
	return found;
}

} // namespace

int findValue(const char *file, const char *key, std::string &value)
{
	if (cached(file))
		return findCached(file, key, value);
	std::vector<std::string> lines;
	if (!readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	for (const auto &line : lines) {
		std::string_view k, v;
		if (parsePair(line, k, v) && k == key) {
			value.assign(v);
			return 1;
		}
	}
	return 0;
}

int pairsToHash(const std::vector<std::string> &lines, size_t begin, size_t end, PVLIBSZHASH *pHash)
{
	if (!*pHash && !(*pHash = VLIBCSzHashAlloc(16))) {
		VEXO_ERR_PASS();
		return -1;
	}
	VLIBCSzHashClear(*pHash);
	for (size_t i = begin; i < end; ++i) {
		std::string_view k, v;
		if (!parsePair(lines[i], k, v))
			continue;
		std::string key(k);
		if (VLIBCSzHashGetValue(*pHash, key.c_str()))
			continue; // the first line of a key wins, as for single reads
		if (VLIBCSzHashSetValue(pHash, key.c_str(), std::string(v).c_str()) < 0) {
			VEXO_ERR_PASS();
			return -1;
		}
	}
	return (*pHash)->nItem;
}

} // namespace vexo::core

extern "C" {

VEXOP_API int VLIBCFileGetKeyValue(const char *file, const char *key, char *out, int size, int flags)
try {
	if (!file || !key || !*key || !out || size < 1 || flags != 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string value;
	int found = vexo::core::findValue(file, key, value);
	if (found < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (found == 0) {
		// Not a failure, but callers log the code when they give up.
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		out[0] = '\0';
		return 0;
	}
	// A value longer than the buffer is cut to it: the length tells.
	return static_cast<int>(vexo::copyTextCut(out, size, value));
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCFileGetKeyValueAll(const char *file, PVLIBSZHASH *pHash)
try {
	if (!file || !pHash) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> lines;
	if (!vexo::core::readLines(file, lines)) {
		VEXO_ERR_PASS();
		return -1;
	}
	int n = vexo::core::pairsToHash(lines, 0, lines.size(), pHash);
	if (n < 0)
		VEXO_ERR_PASS();
	return n;
} VEXO_C_CATCH(-1)

} // extern "C"
