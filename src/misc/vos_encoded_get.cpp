// The identity values the update servers are sent, URL-encoded: the running
// version, the appliance's group and its serial number. The group and the
// serial are the keys group_id and serial of the appliance's information
// file; an appliance outside any group sends an empty group.
#include <string>
#include <vexoplatform/vexocore.h>

#include "frame/boundary.h"
#include "frame/err.h"
#include "misc/misc.h"

namespace {

int store(const std::string &text, char *out, int outSize)
{
	std::string enc;
	if (!vexo::misc::urlEncode(text, enc)) {
		vlog(LOG_ERR, "%s:%d Fail to encode %s", VEXO_AT, text.c_str());
		return -1;
	}
	if (enc.size() >= static_cast<size_t>(outSize)) {
		vlog(LOG_ERR, "%s:%d Failed to store %s", VEXO_AT, text.c_str());
		return -1;
	}
	enc.copy(out, enc.size());
	out[enc.size()] = '\0';
	return 0;
}

// The value of an information key: 1 found, 0 absent or empty, -1 failure.
int infoValue(const char *key, std::string &value)
{
	char buf[256] = {};
	int r = VLIBCINFOGetKeyValue(key, buf, sizeof buf);
	if (r < 0)
		return -1;
	value = buf;
	return r > 0 ? 1 : 0;
}

} // namespace

extern "C" VEXO_API int VEXOVOSEncodedVOSVerGet(char *out, int outSize) try {
	if (!out || outSize < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	unsigned base = 0, nano = 0;
	if (VEXOVOSVerGet(&base, &nano) != 0)
		return -1;
	return store(std::to_string(base) + "." + std::to_string(nano), out, outSize);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOVOSEncodedGroupIDGet(char *out, int outSize) try {
	if (!out || outSize < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string group;
	if (infoValue("group_id", group) < 0) {
		vlog(LOG_ERR, "%s:%d Failed to get %s", VEXO_AT, "group_id");
		return -1;
	}
	return store(group, out, outSize);
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOVOSEncodedDSSNGet(char *out, int outSize) try {
	if (!out || outSize < 1) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string serial;
	if (infoValue("serial", serial) <= 0) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		vlog(LOG_ERR, "%s:%d Failed to get %s", VEXO_AT, "serial");
		return -1;
	}
	return store(serial, out, outSize);
}
VEXO_C_CATCH(-1)
