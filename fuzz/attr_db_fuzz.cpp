// Arbitrary bytes as the drive attribute database: "<model>\0<database
// text>\0<log page bytes>". The model's entry is looked up; its vendor
// attributes are read from the page bytes and its bundle attribute text is
// parsed. Whatever the text, a result is whole: every entry has its
// strings, a value that reads back as a number, and on failure no list.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vexohw/ssd_bundle.h>
#include <vexoplatform/vexocore.h>

#include "smartctl/attr_db.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	std::string in(reinterpret_cast<const char *>(data), size);
	size_t a = in.find('\0'), b = a == std::string::npos ? a : in.find('\0', a + 1);
	if (b == std::string::npos)
		return 0;
	std::string model = in.substr(0, a), text = in.substr(a + 1, b - a - 1), page = in.substr(b + 1);
	vexo::jsonc::Value disk;
	VLIBCErrClear();
	int r = vexo::attrdb::select(text, model.c_str(), disk);
	if ((r == 0) != (disk != nullptr) || r < -1 || r > 1)
		std::abort();
	if (r != 0)
		return 0;
	auto read = [&](unsigned, uint8_t *buf, unsigned length) {
		std::memset(buf, 0, length);
		std::memcpy(buf, page.data(), std::min<size_t>(length, page.size()));
		return !page.empty();
	};
	SmartInfoEntry *list = nullptr;
	if (vexo::attrdb::vendorEntries(disk.get(), "/dev/nvme0n1", read, &list) != 0) {
		if (list)
			std::abort();
	}
	for (const SmartInfoEntry *e = list; e; e = e->next) {
		char *end = nullptr;
		if (!e->name || !e->id || !e->value || !e->raw || std::strcmp(e->value, e->raw) != 0 ||
		    std::strtol(e->id, &end, 10) <= 0 || *end)
			std::abort();
		std::strtoull(e->value, &end, 10);
		if (*end)
			std::abort();
	}
	VEXODiskSmartInfoFree(list);
	json_object *attrs = nullptr;
	if (json_object_object_get_ex(disk.get(), "bundle_smart_attrs", &attrs) &&
	    json_object_is_type(attrs, json_type_string)) {
		int id = 0, shift = 0;
		uint64_t mask = 0;
		if (VEXOSSDBundleSmartInfoGet(json_object_get_string(attrs), 2, &id, &mask, &shift) == 0 &&
		    (id < 1 || id > 0xFFFF || shift < 0 || shift > 63))
			std::abort();
	}
	return 0;
}
