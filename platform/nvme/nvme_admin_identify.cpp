// What an NVMe controller says of itself in Identify Controller: serial,
// model, firmware revision and maker.
#include <cstdint>
#include <string>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/nvme_admin.h>

#include "frame/err.h"
#include "platform/nvme/nvme_admin_command.h"

namespace vexo::nvme {
namespace {

struct PciVendor {
	uint16_t id;
	const char *name;
};

// PCI vendor ids of the makers of NVMe drives. Ids of controller makers
// are left out on purpose: drives built on their controllers are sold
// under another name, which the subsystem id or the model then gives.
constexpr PciVendor kPciVendors[] = {
	{0x1179, "Toshiba"},	     {0x1344, "Micron"},	{0x144D, "Samsung"},
	{0x15B7, "Western Digital"}, {0x1B96, "Western Digital"}, {0x1BB1, "Seagate"},
	{0x1C58, "Western Digital"}, {0x1C5C, "SK hynix"},	{0x1CC1, "ADATA"},
	{0x1D79, "Transcend"},	     {0x1E0F, "KIOXIA"},	{0x2646, "Kingston"},
	{0x8086, "Intel"},	     {0xC0A9, "Crucial"},
};

uint16_t le16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

} // namespace

const char *vendorByPciId(uint16_t id)
{
	for (const auto &v : kPciVendors)
		if (v.id == id)
			return v.name;
	return nullptr;
}

namespace {

// The argument check and the Identify Controller read that each text
// question starts with.
bool identifyFor(const char *path, const char *out, int size, uint8_t (&page)[kIdentifySize])
{
	if (!path || !out || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return false;
	}
	if (identifyController(path, page) != 0) {
		VEXO_ERR_PASS();
		return false;
	}
	return true;
}

} // namespace
} // namespace vexo::nvme

using namespace vexo::nvme;

extern "C" {

VEXOP_API int VEXONVMeFirmAndSerialRead(const char *path, char *firmware, int firmwareSize, char *serial,
					int serialSize)
try {
	if (!path || !firmware || !serial || firmwareSize <= 0 || serialSize <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		vlog(LOG_ERR, "%s:%d Bad parameters", VEXO_AT);
		return -1;
	}
	uint8_t page[kIdentifySize];
	if (identifyController(path, page) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	std::string fr = idText(page + kIdFr, kFrLen), sn = idText(page + kIdSn, kSnLen);
	// Both fit, or neither is written.
	if (fr.size() >= static_cast<size_t>(firmwareSize)) {
		copyOut(fr, firmware, firmwareSize, "firmware revision", path); // refuses, logs
		return -1;
	}
	if (!copyOut(sn, serial, serialSize, "serial number", path))
		return -1;
	copyOut(fr, firmware, firmwareSize, "firmware revision", path);
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeDiskModelGet(const char *path, char *model, int size)
try {
	uint8_t page[kIdentifySize];
	if (!identifyFor(path, model, size, page))
		return -1;
	return copyOut(idText(page + kIdMn, kMnLen), model, size, "model number", path) ? 0 : -1;
} VEXO_C_CATCH(-1)

VEXOP_API int VEXONVMeDiskVendorGet(const char *path, char *vendor, int size)
try {
	uint8_t page[kIdentifySize];
	if (!identifyFor(path, vendor, size, page))
		return -1;
	const char *name = vendorByPciId(le16(page + kIdVid));
	if (!name)
		name = vendorByPciId(le16(page + kIdSsvid));
	std::string text = name ? name : idText(page + kIdMn, kMnLen);
	if (!name)
		text = text.substr(0, text.find(' '));
	if (text.empty())
		text = "Unknown";
	return copyOut(text, vendor, size, "vendor", path) ? 0 : -1;
} VEXO_C_CATCH(-1)

// Optional Admin Command Support bit 4: the controller runs device self-tests.
VEXOP_API int VEXONVMeSupportSelfTest(const char *path)
{
	uint8_t page[kIdentifySize];
	if (!path || identifyController(path, page) != 0)
		return 0;
	return (le16(page + kIdOacs) & kOacsSelfTest) ? 1 : 0;
}

VEXOP_API int VEXONVMeExtendSelfTestTimeMinGet(const char *path)
{
	uint8_t page[kIdentifySize];
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (identifyController(path, page) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	return le16(page + kIdEdstt);
}

} // extern "C"
