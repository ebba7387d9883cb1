// Which database judges a disk: the host's, an adapter card's or the
// expansion unit's, named after the appliance model or the unit's model.
#include <cctype>
#include <cstring>
#include <string>
#include <vexohw/compat.h>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "disk/compat_db.h"
#include "frame/err.h"
#include "frame/text.h"

namespace vexo::compat {

namespace {

constexpr const char *kInfoFile = "/etc.defaults/vexoinfo.conf";

// The enclosure of a disk in an expansion unit: the holder text without
// its "-<unit number>", so every unit of one model shares one database.
bool unitName(const char *disk, std::string &out)
{
	char holder[1024] = {};
	if (VEXODiskLocateGetWithoutIndex(disk, holder, sizeof(holder)) != 0)
		return false;
	std::string h(holder);
	std::size_t dash = h.rfind('-');
	if (dash != std::string::npos && dash + 1 < h.size() &&
	    h.find_first_not_of("0123456789", dash + 1) == std::string::npos)
		h.resize(dash);
	out = h;
	return true;
}

} // namespace

bool dbPathOf(const char *disk, const char *dir, std::string &out)
{
	char model[256] = {};
	if (VLIBCFileGetKeyValue(kInfoFile, "upnpmodelname", model, sizeof(model), 0) < 1) {
		vlog(LOG_ERR, "%s:%d Failed to get value of %s in %s", VEXO_AT, "upnpmodelname", kInfoFile);
		return false;
	}
	if (VLIBCStrCaseLower(model) != 0 || VLIBCStrTrimSpace(model) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to lower case/trim model name %s", VEXO_AT, model);
		return false;
	}
	std::string name;
	int card = VEXOM2CardModelGet(disk);
	const char *cardName = card == VEXO_M2CARD_NONE || card == VEXO_M2CARD_UNKNOWN ? nullptr : VEXOM2CardIDToStr(card);
	if (cardName) {
		name = std::string(model) + "_" + cardName;
	} else {
		std::string container;
		if (VEXODiskPortCheck(disk) == DISK_PORT_TYPE_EBOX && !unitName(disk, container)) {
			vlog(LOG_ERR, "%s:%d Failed to get container name %s", VEXO_AT, disk);
			return false;
		}
		name = container.empty() ? std::string(model) + "_host" : container;
	}
	std::string lowered(name);
	if (VLIBCStrCaseLower(lowered.data()) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to lower case container name %s", VEXO_AT, name.c_str());
		return false;
	}
	out = std::string(dir) + lowered.c_str() + VEXO_COMPAT_DB_SUFFIX;
	return true;
}

const char *rulePathOf(const char *disk)
{
	return VEXODiskPortCheck(disk) == DISK_PORT_TYPE_EBOX ? VEXO_COMPAT_EUNIT_RULE : VEXO_COMPAT_HOST_RULE;
}

} // namespace vexo::compat

extern "C" {

VEXO_API int VEXODiskCompatibilityDBPathGetByDir(const char *disk, const char *dir, char *out, int outSize)
try {
	if (!disk || !dir || !out || outSize <= 0) {
		vlog(LOG_ERR, "%s:%d Invalid parameters", VEXO_AT);
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string path;
	if (!vexo::compat::dbPathOf(disk, dir, path))
		return -1;
	return VEXO_COPY_OUT(out, outSize, path, "database path") ? 0 : -1;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskCompatibilityDBPathGet(const char *disk, char *out, int outSize)
try {
	return VEXODiskCompatibilityDBPathGetByDir(disk, VEXO_COMPAT_DB_DIR, out, outSize);
} VEXO_C_CATCH(-1)

} // extern "C"
