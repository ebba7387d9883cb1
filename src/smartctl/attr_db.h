// The drive attribute database (layout in <vexohw/attr_db.h>) and the vendor
// attributes it describes, apart from the drive so they can be driven by
// any text and any page bytes. Not exported.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vexohw/smart_info.h>

#include "frame/jsonc.h"

namespace vexo::attrdb {

// The object of `model` in the database text. 0 and out, 1 no entry, -1 the
// text is not a JSON object or the entry is not an object (0x0A00 recorded).
int select(std::string_view text, const char *model, vexo::jsonc::Value &out);

// A number of the database: a JSON integer, or a string read with strtol in
// base 0. nullopt when the member is missing or holds anything else.
std::optional<long long> number(json_object *o, const char *key);

// Reads `length` bytes of a log page into buf; false on failure.
using PageReader = std::function<bool(unsigned page, uint8_t *buf, unsigned length)>;

// The vendor entries that disk (the model's object) describes, appended to
// *out (which must hold null) in the database's order: 0, or -1 with *out
// null. `path` names the disk in log lines.
int vendorEntries(json_object *disk, const char *path, const PageReader &read, SmartInfoEntry **out);

// The little-endian value of size bytes at offset of a page of length
// bytes; nullopt when the window is not inside the page (size 1 to 8).
std::optional<uint64_t> fieldValue(const uint8_t *page, long long length, long long offset, long long size);

} // namespace vexo::attrdb
