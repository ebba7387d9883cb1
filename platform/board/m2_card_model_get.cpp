// Adapter card models and the hardware model, from the platform description.
#include <cstring>
#include <iterator>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "platform/board/platform_description.h"

namespace {

// Indexed by card model number.
constexpr const char *kCardNames[] = {"M2C-D2", "M2C-S1", "M2C-S2", "M2C-N4", "M2C-X1", "M2C-X2", "M2C-U2"};

} // namespace

extern "C" {

VEXOP_API const char *VEXOM2CardIDToStr(int model)
try {
	if (model < 0 || model >= static_cast<int>(std::size(kCardNames)))
		return nullptr;
	return kCardNames[model];
} VEXO_C_CATCH(nullptr)

VEXOP_API int VEXOM2CardModelGet(const char *path)
try {
	std::string name = vexo::platform::diskName(path);
	std::vector<std::string> components = vexo::platform::sysfsComponents(name);
	if (components.empty())
		return VEXO_M2CARD_UNKNOWN;
	vexo::platform::Description d;
	// Without a description the board has no adapter slots.
	if (!vexo::platform::loadDescription(d))
		return VEXO_M2CARD_NONE;
	const auto *slot = vexo::platform::deepestMatch(d.adapterSlots, components);
	if (!slot)
		return VEXO_M2CARD_NONE;
	for (int i = 0; i < static_cast<int>(std::size(kCardNames)); ++i)
		if (slot->card == kCardNames[i])
			return i;
	return VEXO_M2CARD_UNKNOWN;
} VEXO_C_CATCH(VEXO_M2CARD_UNKNOWN)

VEXOP_API int VEXOAdapterCardCheckSupport(const char *cardName, const char *attribute)
try {
	if (!cardName || !attribute) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::platform::Description d;
	if (!vexo::platform::loadDescription(d)) {
		VEXO_ERR_PASS();
		return -1;
	}
	auto card = d.cards.find(cardName);
	if (card == d.cards.end())
		return 0;
	auto attr = card->second.find(attribute);
	return attr != card->second.end() && attr->second ? 1 : 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VexoHWVersionGet(char *model, int size)
try {
	if (!model || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	vexo::platform::Description d;
	if (!vexo::platform::loadDescription(d)) {
		VEXO_ERR_PASS();
		return -1;
	}
	if (d.model.empty()) {
		VEXO_ERR(VEXO_ERR_NOT_FOUND);
		return -1;
	}
	if (VLIBCStrSnprintf(model, size, "%s", d.model.c_str()) < 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
