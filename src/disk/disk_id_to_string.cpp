// Texts made from a DiskId: display, mail, identifier and key.
#include <cstdio>
#include <cstring>
#include <string>

#include <vexohw/disk.h>
#include <vexoplatform/ebox_info.h>

#include "frame/err.h"

namespace {

// "<prefix> <slot>-<index>" for a card slot, "<prefix> <index>" on the board.
// Without a slot the board numbers its cache devices from 11. The text into
// *text and 1; 0 when a bad slot leaves nothing to write; -1 when the id is
// no cache device.
int cacheText(const DiskId *id, const char *prefix, const char *separator, std::string *text)
{
	if (id->container != DISK_CONTAINER_CACHE) {
		vlog(LOG_ERR, "%s:%d Incorrect Disk type. Not a Cache device !", VEXO_AT);
		return -1;
	}
	char buf[300];
	if (id->slot > 0)
		std::snprintf(buf, sizeof(buf), "%s%s%u-%u", prefix, separator, static_cast<unsigned>(id->slot),
			      static_cast<unsigned>(id->index));
	else if (id->slot == 0)
		std::snprintf(buf, sizeof(buf), "%s%s%u", prefix, separator, static_cast<unsigned>(id->index));
	else if (id->slot == -1)
		std::snprintf(buf, sizeof(buf), "%s%s%u", prefix, separator, static_cast<unsigned>(id->index - 10));
	else
		return 0;
	*text = buf;
	return 1;
}

// Copies a whole text into the caller's buffer: 0, or -1 with 0x0D00 and
// the buffer untouched when it does not fit (a cut id names another disk).
int put(const std::string &text, char *out, int size)
{
	if (text.size() >= static_cast<std::size_t>(size)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::memcpy(out, text.c_str(), text.size() + 1);
	return 0;
}

// A cache id's text into out: 0 also when nothing is written, or -1.
int putCacheText(const DiskId *id, const char *prefix, char *out, int size)
{
	std::string text;
	int r = cacheText(id, prefix, " ", &text);
	if (r <= 0)
		return r;
	return put(text, out, size);
}

bool badArgs(const void *id, const char *out, int size)
{
	if (!id || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return true;
	}
	return false;
}

std::string stringsTable(const char *lang)
{
	return std::string("/usr/vexo/vexoman/webman/texts/") + lang + "/strings";
}

// One text of the mail language's string table, or the fallback.
std::string mailWord(const char *lang, const char *key, const char *fallback)
{
	std::string table = stringsTable(lang);
	char value[256] = {};
	if (VLIBCFileGetKeyValue(table.c_str(), key, value, sizeof(value), 0) > 0)
		return value;
	vlog(LOG_ERR, "%s:%d Failed to get value of %s in %s", VEXO_AT, key, table.c_str());
	return fallback;
}

} // namespace

extern "C" {

VEXO_API int DiskIdToString(const DiskId *id, char *out, int size)
try {
	if (badArgs(id, out, size))
		return -1;
	if (id->container == DISK_CONTAINER_CACHE)
		return putCacheText(id, "Cache device", out, size);
	if (id->container == DISK_CONTAINER_SYS)
		return put("System device " + std::to_string(id->index), out, size);
	return put(std::to_string(id->index), out, size);
} VEXO_C_CATCH(-1)

VEXO_API int DiskIdToMailString(const DiskId *id, char *out, int size)
try {
	if (badArgs(id, out, size))
		return -1;
	char lang[32] = {};
	if (VLIBCFileGetKeyValue("/etc/vexoinfo.conf", "maillang", lang, sizeof(lang), 0) <= 0 ||
	    std::strchr(lang, '/') || std::strcmp(lang, "..") == 0) {
		vlog(LOG_ERR, "%s:%d Failed to get maillang, use enu instead. vexoerr=[0x%04X]", VEXO_AT, VLIBCErrGet());
		std::strcpy(lang, "enu");
	}
	if (id->container == DISK_CONTAINER_CACHE) {
		std::string word = mailWord(lang, "dedicated_ssd_cache", "Cache device");
		return putCacheText(id, word.c_str(), out, size);
	}
	std::string word = id->container == DISK_CONTAINER_SYS ? mailWord(lang, "volume_system_disk", "System device")
							       : mailWord(lang, "volume_disk_info", "disk");
	return put(word + " " + std::to_string(id->index), out, size);
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskInfoToString(const DiskInfo *info, char *out, int size)
try {
	if (!info || !out || size <= 0) {
		vlog(LOG_ERR, "%s:%d Invalid inputed parameter", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	const DiskId &id = info->id;
	int n = 0;
	switch (id.container) {
	case DISK_CONTAINER_INTERNAL:
		n = std::snprintf(out, size, "%s_%d", "Disk", id.index);
		break;
	case DISK_CONTAINER_EBOX: {
		char unique[32] = {};
		if (VEXOEBoxUnitUniqueGetByDevPath(info->path, unique, sizeof(unique)) < 0) {
			vlog(LOG_ERR, "%s:%d Failed to get eunit unique", VEXO_AT);
			std::strcpy(unique, "Eunit");
		}
		n = std::snprintf(out, size, "%s_%d_%s", "Disk", id.index, unique);
		break;
	}
	case DISK_CONTAINER_ESATA:
		n = std::snprintf(out, size, "%s_%d", "Esata", id.index);
		break;
	case DISK_CONTAINER_CACHE: {
		std::string text;
		if (cacheText(&id, "Cache", "_", &text) > 0) {
			n = std::snprintf(out, size, "%s", text.c_str());
		} else {
			vlog(LOG_ERR, "%s:%d Failed to get cache device name string", VEXO_AT);
			n = std::snprintf(out, size, "%s_%d", "Cache", id.index);
		}
		break;
	}
	case DISK_CONTAINER_SYS:
		n = std::snprintf(out, size, "%s_%d", "System", id.index);
		break;
	default:
		n = std::snprintf(out, size, "unknown");
		break;
	}
	return n >= 0 && n < size ? 0 : -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskIdSerialize(const DiskId *id, char *out, int size)
try {
	if (badArgs(id, out, size))
		return -1;
	int middle = 0;
	switch (id->container) {
	case DISK_CONTAINER_INTERNAL:
		middle = 0;
		break;
	case DISK_CONTAINER_EBOX:
	case DISK_CONTAINER_SYS:
		middle = id->unit;
		break;
	case DISK_CONTAINER_CACHE:
		middle = id->slot;
		break;
	default:
		VEXO_ERR(VEXO_ERR_UNKNOWN_DEVICE);
		return -1;
	}
	int n = std::snprintf(out, size, "%s_%d_%d", VEXODiskContainerToString(id->container), middle, id->index);
	if (n < 0 || n >= size) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
