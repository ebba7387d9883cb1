// Status keyword tables and the per-disk value cache.
#include <algorithm>
#include <dirent.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

int statusTables(Context &ctx)
{
	std::string only = ctx.args.empty() ? "" : ctx.args[0];
	Value all = Value::list();
	for (const auto &c : grgDiskStatusCategory) {
		if (!only.empty() && only != c.keyword)
			continue;
		Value rows = Value::list();
		for (int i = 0; i < c.count; ++i) {
			Value r = Value::object();
			r.set("category", c.keyword);
			r.set("index", i);
			r.set("keyword", c.table[i].keyword ? Value(c.table[i].keyword) : Value());
			r.set("abnormal", c.table[i].isAbnormal != 0);
			r.set("emergent_rank", c.table[i].emergentRank);
			r.set("summary_code", c.table[i].summaryCode);
			all.push(r);
			rows.push(r);
		}
		if (!ctx.json) {
			std::string title = std::string("[") + c.keyword + "]";
			printTable(ctx, rows,
				   {{"index", "INDEX"}, {"keyword", "KEYWORD"}, {"abnormal", "ABNORMAL"},
				    {"emergent_rank", "RANK"}, {"summary_code", "SUMMARY"}},
				   title.c_str());
			std::printf("\n");
		}
	}
	if (all.asList().empty())
		return fail("no status category '%s'", only.c_str());
	if (ctx.json)
		std::printf("%s\n", all.json().c_str());
	return 0;
}

int statusLookup(Context &ctx)
{
	if (ctx.args.size() != 2)
		return fail("usage: status lookup CATEGORY KEYWORD");
	int rank = 0, abnormal = 0, summary = 0;
	if (DiskStatusAllAttributeGet(ctx.args[0].c_str(), ctx.args[1].c_str(), &rank, &abnormal, &summary) != 0)
		return fail("'%s' is not a keyword of '%s' (error 0x%04X)", ctx.args[1].c_str(), ctx.args[0].c_str(),
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("category", ctx.args[0]);
	r.set("keyword", ctx.args[1]);
	r.set("abnormal", abnormal != 0);
	r.set("emergent_rank", rank);
	r.set("summary_code", summary);
	printRecord(ctx, r);
	return 0;
}

std::vector<std::string> diskNames()
{
	std::vector<std::string> names;
	PVLIBSZLIST list = VLIBCSzListAlloc(16);
	if (list && VEXOExtCacheDiskListGet(&list) > 0)
		for (int i = 0; i < list->nItem; ++i)
			names.push_back(list->ppszItem[i]);
	VLIBCSzListFree(list);
	return names;
}

// Every known key of one disk, read through the library's own readers.
Value cacheOf(const std::string &name)
{
	const std::string dev = "/dev/" + name;
	Value r = Value::object();
	r.set("disk", name);
	Value values = Value::object();
	int type;
	for (int i = 0; const char *k = VEXOExtCacheKeyGet(i, &type); ++i) {
		const std::string key(k);
		switch (type) {
		case VEXO_EXT_CACHE_INT: {
			int v;
			if (VEXODiskGetIntValueCacheFile(dev.c_str(), key.c_str(), &v) == 0)
				values.set(key, v);
			break;
		}
		case VEXO_EXT_CACHE_LLINT: {
			long long v;
			if (VEXODiskGetLLIntValueCacheFile(dev.c_str(), key.c_str(), &v) == 0)
				values.set(key, v);
			break;
		}
		case VEXO_EXT_CACHE_STR: {
			char v[256];
			if (VEXODiskGetStrValueCacheFile(dev.c_str(), key.c_str(), v, sizeof(v)) == 0)
				values.set(key, v);
			break;
		}
		}
	}
	r.set("values", values);
	return r;
}

int cacheShow(Context &ctx)
{
	std::vector<std::string> names = ctx.args;
	for (auto &n : names)
		if (n.rfind("/dev/", 0) == 0)
			n = n.substr(5);
	if (names.empty())
		names = diskNames();
	Value all = Value::list();
	for (const auto &n : names) {
		Value c = cacheOf(n);
		if (!ctx.json) {
			Value rows = Value::list();
			for (const auto &[k, v] : c.get("values")->asObject()) {
				Value row = Value::object();
				row.set("key", k);
				row.set("value", v);
				rows.push(row);
			}
			std::string title = "/dev/" + n;
			printTable(ctx, rows, {{"key", "KEY"}, {"value", "VALUE"}}, title.c_str());
			std::printf("\n");
		}
		all.push(c);
	}
	if (ctx.json)
		std::printf("%s\n", all.json().c_str());
	return 0;
}

VEXO_CLI_COMMAND("status tables", "[CATEGORY]", "the disk status keyword tables", statusTables, {});
VEXO_CLI_COMMAND("status lookup", "CATEGORY KEYWORD", "find a status keyword (prefix rules apply)", statusLookup, {});
VEXO_CLI_COMMAND("cache show", "[DISK...]", "per-disk cached values (all disks when none named)", cacheShow, {});

} // namespace
