// Arbitrary bytes as smartctl's output: the heading search and the table
// parser, with and without an override list, straight from memory.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "smartctl/smart_info_list.h"

namespace {

void check(const SmartInfoEntry *l)
{
	for (; l; l = l->next) {
		for (const char *s : {l->id, l->name, l->value, l->worst, l->threshold, l->raw})
			if (!s || !*s || std::strlen(s) > 255 || std::strpbrk(s, " \n"))
				std::abort();
		if (l->status > SMART_ATTR_STATUS_FAILING_NOW ||
		    l->status != vexo::smart::attrStatus(l->value, l->worst, l->threshold))
			std::abort();
	}
}

// Parses data; -1 on failure (which must leave no list), else the count.
int parse(const uint8_t *data, size_t size, const SmartInfoEntry *overrides, bool drop, SmartInfoEntry **out)
{
	std::FILE *in = fmemopen(const_cast<uint8_t *>(data), size, "r");
	if (!in)
		std::abort();
	*out = nullptr;
	int r = -1;
	if (vexo::smart::smartInfoTableSkipHeading(in)) {
		VLIBCErrClear();
		r = vexo::smart::smartInfoTableParse(in, overrides, drop, out);
		if (r != 0 && (*out || VLIBCErrGet() != VEXO_ERR_NOT_FOUND))
			std::abort();
	}
	std::fclose(in);
	int n = 0;
	for (const SmartInfoEntry *e = *out; e; e = e->next)
		++n;
	return r == 0 ? n : -1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	if (size == 0)
		return 0;
	SmartInfoEntry *plain = nullptr;
	int n = parse(data, size, nullptr, false, &plain);
	check(plain);
	if (n > 0) {
		// Every other row overridden (raw replaced, the rest kept): dropping
		// keeps exactly those, in order.
		vexo::smart::ListBuilder ov;
		int listed = 0, i = 0;
		for (const SmartInfoEntry *e = plain; e; e = e->next, ++i)
			if (i % 2 == 0) {
				ov.append(vexo::smart::newEntry(e->id, "", "SKIP", "SKIP", "SKIP", "7"));
				++listed;
			}
		SmartInfoEntry *o = ov.release();
		SmartInfoEntry *kept = nullptr;
		int m = parse(data, size, o, true, &kept);
		check(kept);
		// Repeated ids can keep more rows than were listed, never fewer.
		if (m < listed)
			std::abort();
		for (const SmartInfoEntry *e = kept; e; e = e->next)
			if (std::strcmp(e->raw, "7") != 0)
				std::abort();
		VEXODiskSmartInfoFree(kept);
		VEXODiskSmartInfoFree(o);
	}
	VEXODiskSmartInfoFree(plain);
	return 0;
}
