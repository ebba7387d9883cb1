// Arbitrary bytes as a SMART list cache file. A list the reader accepts is
// written back by the writer and must read back the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vexoplatform/vexocore.h>

#include "smartctl/smart_info_list.h"

namespace {

// A root of our own with one disk directory, for the whole run.
void fuzzRoot()
{
	static const bool once = [] {
		char tmpl[] = "/tmp/vexo_smart_cache_fuzz.XXXXXX";
		std::string r = mkdtemp(tmpl) ? tmpl : "/tmp";
		setenv("VEXO_SYSROOT", r.c_str(), 1);
		for (const char *d : {"/run", "/run/vexostorage", "/run/vexostorage/disks", "/run/vexostorage/disks/sda"})
			mkdir((r + d).c_str(), 0755);
		return true;
	}();
	(void)once;
}

bool same(const SmartInfoEntry *a, const SmartInfoEntry *b)
{
	for (; a && b; a = a->next, b = b->next) {
		const char *x[] = {a->id, a->name, a->value, a->worst, a->threshold, a->raw};
		const char *y[] = {b->id, b->name, b->value, b->worst, b->threshold, b->raw};
		for (int i = 0; i < 6; ++i)
			if (std::strcmp(x[i], y[i]) != 0)
				return false;
		if (a->status != b->status)
			return false;
	}
	return !a && !b;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	fuzzRoot();
	SmartInfoEntry *l = nullptr;
	VLIBCErrClear();
	int r = vexo::smart::smartInfoCacheParse(std::string_view(reinterpret_cast<const char *>(data), size), &l);
	if (r != 0) {
		int code = VLIBCErrGet();
		if (l || (code != 0x0900 && code != 0x0A00 && code != 0x2A00))
			std::abort();
		return 0;
	}
	if (!l)
		std::abort(); // an empty array is refused
	if (SmartInfoCacheUpdate("sda", l) != 0)
		std::abort();
	SmartInfoEntry *back = nullptr;
	if (SmartInfoCacheGet("sda", &back) != 0 || !same(l, back))
		std::abort();
	VEXODiskSmartInfoFree(back);
	VEXODiskSmartInfoFree(l);
	return 0;
}
