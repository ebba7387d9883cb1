// SMART attribute lists: ownership, the status rule, the table parser and
// the cache's JSON form, shared by the readers, the cache and the CLI.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <json-c/json.h>
#include <memory>
#include <string_view>
#include <vexohw/disk_port.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>

#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/list.h"

namespace vexo::smart {

// Renaming the finished cache file over the old one failed.
inline constexpr int kErrRename = 0x2800;

inline constexpr const char *kSmartctl = "/usr/bin/smartctl";
inline constexpr const char *kCacheFile = "smart_info_list.cache";
inline constexpr const char *kCacheTmp = "smart_info_list.cache.tmp";
inline constexpr const char *kCacheLock = ".smart_info_list.lock";
inline constexpr const char *kCacheStamp = ".smart_info_list.timestamp";
inline constexpr int kCacheLockSeconds = 10;
// A cached list is served for this long (inclusive) after it was written.
inline constexpr long long kCacheMaxAgeSeconds = 3600;
// Elements of a cache entry: id, name, value, worst, threshold, raw, status.
inline constexpr size_t kCacheItems = 7;

// The clock the cache stamps are taken on: it does not jump with the wall
// clock and, as the cache, does not survive a reboot.
inline long long coarseMonotonicSeconds()
{
	struct timespec ts {};
	::clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
	return static_cast<long long>(ts.tv_sec);
}

// A stamp from the future cannot come from this boot's clock: treat it as
// stale rather than trusting it for an hour.
inline bool cacheFresh(long long stamp, long long now)
{
	return now >= stamp && now - stamp <= kCacheMaxAgeSeconds;
}

// The device name of a "/dev/<name>" path. The whole rest of the path must
// be the name: a cut or split one would file this disk's list under another
// disk.
inline bool deviceName(const char *path, char (&name)[32])
{
	name[0] = '\0';
	return std::sscanf(path, "/dev/%31s", name) == 1 && std::strcmp(name, path + 5) == 0;
}

// The -d keyword of a disk; logs and records 0x2A00 when it can't be told.
inline bool deviceType(const char *path, char (&type)[16])
{
	type[0] = '\0';
	if (VEXODiskDeviceTypeGet(path, type, sizeof(type)) == 0)
		return true;
	vlog(LOG_ERR, "%s:%d Failed to get device type of %s", VEXO_AT, path);
	VEXO_ERR(VEXO_ERR_NOT_FOUND);
	return false;
}

struct ListFree {
	void operator()(SmartInfoEntry *l) const { VEXODiskSmartInfoFree(l); }
};
using UniqueList = std::unique_ptr<SmartInfoEntry, ListFree>;

// Builds a list in place; frees whatever it still holds.
using ListBuilder = vexo::ListBuilder<SmartInfoEntry, VEXODiskSmartInfoFree>;

// A heap entry with copies of the texts, status 0 and no next. Null when
// memory ran out; nothing is left allocated then.
SmartInfoEntry *newEntry(std::string_view id, std::string_view name, std::string_view value, std::string_view worst,
			 std::string_view threshold, std::string_view raw);
// Replaces one text field of an entry with a copy. False when memory ran out
// (the field is unchanged then).
bool setField(char *&field, const char *text);

// The status rule over the printed columns: threshold 0 is always good;
// otherwise a value at or below the threshold is failing now, and a worst at
// or below it failed in the past. A column that is not a decimal number
// (smartctl prints "---" where a drive keeps no normalized value) cannot
// make an attribute fail.
uint32_t attrStatus(const char *value, const char *worst, const char *threshold);

// The attribute table from a stream positioned after its "ID#" heading line,
// up to the first empty line or the end. Lines are cut at 255 bytes. With an
// override list, entries of the same id replace value, worst, threshold and
// raw unless they read "SKIP"; with dropUnlisted, rows without an override
// entry are left out. 0 and the list, or -1 with the code recorded (0x2A00 a
// short row, 0x0200 out of memory) and *out null.
int smartInfoTableParse(std::FILE *in, const SmartInfoEntry *overrides, bool dropUnlisted, SmartInfoEntry **out);
// Skips to the line holding "ID#". False when the stream ends first.
bool smartInfoTableSkipHeading(std::FILE *in);

// The cache file's text as a list. 0, or -1 with the code recorded (0x0900
// not a non-empty array, 0x0A00 an element that is not an array of seven,
// 0x2A00 a missing or mistyped item) and *out null.
int smartInfoCacheParse(std::string_view text, SmartInfoEntry **out);

using UniqueJson = vexo::jsonc::Value;

} // namespace vexo::smart
