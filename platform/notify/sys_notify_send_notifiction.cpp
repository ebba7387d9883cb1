// The notification service: each notification becomes one file in the spool,
// written whole under a hidden temporary name and renamed into place, so the
// mail sender never reads half of one. The format is in sysnotify.h.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vexoplatform/sysnotify.h>

#include "frame/clock.h"
#include "frame/err.h"
#include "frame/priv.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

std::atomic<unsigned> gSeq{0};

bool lineSafe(std::string_view s, bool key)
{
	for (char c : s)
		if (c == '\n' || c == '\r' || (key && c == '='))
			return false;
	return true;
}

void putValue(std::string &out, std::string_view v)
{
	for (char c : v) {
		if (c == '\\')
			out += "\\\\";
		else if (c == '\n')
			out += "\\n";
		else if (c == '\r')
			out += "\\r";
		else
			out += c;
	}
}

bool makeSpool()
{
	// /var/spool may itself be missing on a fresh root.
	std::string dir = VEXO_NOTIFY_SPOOL_DIR;
	for (size_t i = 1; i <= dir.size(); ++i)
		if (i == dir.size() || dir[i] == '/') {
			std::string part = dir.substr(0, i);
			if (vexo::sysroot::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
				return false;
		}
	return true;
}

} // namespace

extern "C" VEXOP_API int VEXOSysNotifySendNotifiction(const char *tag, PVLIBSZHASH hash)
try {
	if (!tag || !*tag || !lineSafe(tag, false)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	struct timespec now = vexo::clock::wall();
	std::string text = "tag=" + std::string(tag) + "\ntime=" + std::to_string(static_cast<long long>(now.tv_sec)) + "\n";
	for (int i = 0; hash && i < hash->nItem; ++i) {
		const char *k = hash->ppszKey[i];
		const char *v = hash->ppszValue[i] ? hash->ppszValue[i] : "";
		if (!k || !*k || !lineSafe(k, true)) {
			vlog(LOG_ERR, "%s:%d Bad notification key", VEXO_AT);
			VEXO_ERR(VEXO_ERR_BAD_PARAM);
			return -1;
		}
		text += k;
		text += '=';
		putValue(text, v);
		text += '\n';
	}
	char name[96];
	std::snprintf(name, sizeof name, "%lld.%09ld-%d-%u.ntf", static_cast<long long>(now.tv_sec), now.tv_nsec,
		      static_cast<int>(::getpid()), gSeq.fetch_add(1));
	const std::string path = std::string(VEXO_NOTIFY_SPOOL_DIR) + "/" + name;
	const std::string tmp = std::string(VEXO_NOTIFY_SPOOL_DIR) + "/." + name + ".tmp";

	ENTERCriticalSection;
	if (!makeSpool()) {
		vlog(LOG_ERR, "%s:%d Failed to create %s. errno=%m", VEXO_AT, VEXO_NOTIFY_SPOOL_DIR);
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	vexo::UniqueFile f(vexo::sysroot::fcreate(tmp.c_str(), 0644));
	if (!f) {
		vlog(LOG_ERR, "%s:%d Failed to open %s. errno=%m", VEXO_AT, tmp.c_str());
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	bool ok = std::fwrite(text.data(), 1, text.size(), f.get()) == text.size() && std::fflush(f.get()) == 0 &&
		  ::fsync(::fileno(f.get())) == 0;
	if (ok && vexo::sysroot::rename(tmp.c_str(), path.c_str()) != 0)
		ok = false;
	if (!ok) {
		vlog(LOG_ERR, "%s:%d Failed to write %s. errno=%m", VEXO_AT, path.c_str());
		vexo::sysroot::unlink(tmp.c_str());
		VEXO_ERR(VEXO_ERR_WRITE);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
