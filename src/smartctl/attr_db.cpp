// VEXOAttrDBGetByDisk and the vendor attributes of an NVMe drive that the
// drive attribute database describes.
#include "smartctl/attr_db.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vexohw/attr_db.h>
#include <vexohw/disk_probe.h>
#include <vexoplatform/nvme_smart.h>

#include "frame/err.h"
#include "frame/path_read.h"
#include "smartctl/smart_info_list.h"

namespace vexo::attrdb {

namespace {

constexpr const char *kVendorKey = "nvme_smart_vendor_specific";
constexpr long long kMaxPage = 4096;

} // namespace

int select(std::string_view text, const char *model, vexo::jsonc::Value &out)
{
	out.reset();
	vexo::jsonc::Value db = vexo::jsonc::parseWhole(text);
	if (!db || !json_object_is_type(db.get(), json_type_object)) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	json_object *entry = nullptr;
	if (!json_object_object_get_ex(db.get(), model, &entry))
		return 1;
	if (!json_object_is_type(entry, json_type_object)) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	out.reset(json_object_get(entry));
	return 0;
}

std::optional<long long> number(json_object *o, const char *key)
{
	json_object *m = nullptr;
	if (!o || !json_object_is_type(o, json_type_object) || !json_object_object_get_ex(o, key, &m) || !m)
		return std::nullopt;
	if (json_object_is_type(m, json_type_int))
		return json_object_get_int64(m);
	if (!json_object_is_type(m, json_type_string))
		return std::nullopt;
	const char *s = json_object_get_string(m);
	char *end = nullptr;
	errno = 0;
	long long v = std::strtoll(s, &end, 0);
	if (end == s || errno == ERANGE)
		return std::nullopt;
	return v;
}

std::optional<uint64_t> fieldValue(const uint8_t *page, long long length, long long offset, long long size)
{
	if (size < 1 || size > 8 || offset < 0 || offset > length || size > length - offset)
		return std::nullopt;
	uint64_t v = 0;
	for (long long i = size - 1; i >= 0; --i)
		v = v << 8 | page[offset + i];
	return v;
}

int vendorEntries(json_object *disk, const char *path, const PageReader &read, SmartInfoEntry **out)
{
	vexo::smart::ListBuilder list;
	json_object *pages = vexo::jsonc::member(disk, kVendorKey, json_type_object);
	if (!pages) {
		vlog(LOG_ERR, "%s:%d Failed to get %s in %s", VEXO_AT, kVendorKey, VEXO_ATTR_DB_PATH);
		VEXO_ERR(VEXO_ERR_DB_KEY);
		return -1;
	}
	json_object_object_foreach(pages, pageKey, pageObj)
	{
		unsigned page = static_cast<unsigned>(std::strtoul(pageKey, nullptr, 0));
		std::optional<long long> length = number(pageObj, "length");
		json_object *attrs = vexo::jsonc::member(pageObj, "attributes", json_type_object);
		if (!length || *length < 1 || *length > kMaxPage || !attrs) {
			vlog(LOG_ERR, "%s:%d Failed to get %s in %s", VEXO_AT, !length ? "length" : "attributes", pageKey);
			VEXO_ERR(VEXO_ERR_DB_KEY);
			return -1;
		}
		std::unique_ptr<uint8_t[]> buf(new (std::nothrow) uint8_t[*length]);
		if (!buf) {
			vlog(LOG_ERR, "%s:%d Out of memory: alloc %zu bytes failed", VEXO_AT, static_cast<size_t>(*length));
			VEXO_ERR(VEXO_ERR_NOMEM);
			return -1;
		}
		if (!read(page, buf.get(), static_cast<unsigned>(*length))) {
			vlog(LOG_ERR, "%s:%d failed to get NVMe log pagd %#x of %s", VEXO_AT, page, path);
			VEXO_ERR(VEXO_ERR_DEVICE);
			return -1;
		}
		json_object_object_foreach(attrs, name, attr)
		{
			std::optional<long long> offset = number(attr, "offset"), size = number(attr, "size");
			std::optional<long long> hide = number(attr, "hide_name");
			std::optional<uint64_t> value;
			if (offset && size)
				value = fieldValue(buf.get(), *length, *offset, *size);
			if (!value) {
				// A window outside the page reads as 0 rather than
				// bytes of another field.
				vlog(LOG_ERR, "%s:%d Invalid arguments", VEXO_AT);
				value = 0;
			}
			int id = VEXONVMeSmartStrToID(name);
			if (id == 0) {
				vlog(LOG_ERR, "%s:%d Unknown smart attribute: %s", VEXO_AT, name);
				VEXO_ERR(VEXO_ERR_NOT_FOUND);
				return -1;
			}
			char idText[16], valueText[24];
			std::snprintf(idText, sizeof(idText), "%d", id);
			std::snprintf(valueText, sizeof(valueText), "%llu", static_cast<unsigned long long>(*value));
			SmartInfoEntry *e = vexo::smart::newEntry(idText, hide && *hide != 0 ? "Vendor Specific" : name,
								  valueText, "", "", valueText);
			if (!e) {
				vlog(LOG_ERR, "%s:%d Out of memory: alloc %zu bytes failed", VEXO_AT, sizeof(SmartInfoEntry));
				VEXO_ERR(VEXO_ERR_NOMEM);
				return -1;
			}
			list.append(e);
		}
	}
	*out = list.release();
	return 0;
}

} // namespace vexo::attrdb

extern "C" VEXO_API int VEXOAttrDBGetByDisk(const char *path, struct json_object **obj)
try {
	if (!path || !obj) {
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	*obj = nullptr;
	char model[128];
	if (VEXOLnxDiskGetModel(path, model, sizeof(model)) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get model of %s", VEXO_AT, path);
		VEXO_ERR_PASS();
		return -1;
	}
	// A few models of a few pages each: megabytes mean a damaged file.
	constexpr std::size_t kDbMax = 4u << 20;
	std::string text;
	if (!vexo::readBytes(VEXO_ATTR_DB_PATH, text, kDbMax)) {
		vlog(LOG_ERR, "%s:%d Failed to read %s", VEXO_AT, VEXO_ATTR_DB_PATH);
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	vexo::jsonc::Value entry;
	int r = vexo::attrdb::select(text, model, entry);
	if (r < 0)
		vlog(LOG_ERR, "%s:%d %s is damaged", VEXO_AT, VEXO_ATTR_DB_PATH);
	*obj = entry.release();
	return r;
}
VEXO_C_CATCH(-1)
