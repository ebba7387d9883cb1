// Loading the platform description and placing a disk on the PCI tree.
#include <cctype>
#include <climits>
#include <cstring>
#include <json-c/json.h>
#include <memory>

#include <vexoplatform/vexoerr.h>
#include <vexoplatform/nvme_location.h>
#include <vexoplatform/vexocore.h>

#include "platform/board/platform_description.h"
#include "frame/err.h"
#include "frame/jsonc.h"
#include "frame/sysroot.h"

namespace vexo::platform {

namespace {

std::string text(json_object *o, const char *key)
{
	return std::string(vexo::jsonc::string(o, key).value_or(""));
}

bool readEntries(json_object *root, const char *key, std::vector<PciEntry> &out)
{
	json_object *arr = nullptr;
	if (!json_object_object_get_ex(root, key, &arr))
		return true;
	if (!json_object_is_type(arr, json_type_array))
		return false;
	for (size_t i = 0; i < json_object_array_length(arr); ++i) {
		json_object *e = json_object_array_get_idx(arr, i);
		if (!json_object_is_type(e, json_type_object))
			return false;
		PciEntry p;
		p.pci = text(e, "pci");
		json_object *v = nullptr;
		if (json_object_object_get_ex(e, "slot", &v))
			p.slot = json_object_get_int(v);
		if (json_object_object_get_ex(e, "location", &v))
			p.location = json_object_get_int(v);
		p.type = text(e, "type");
		p.card = text(e, "card");
		p.unique = text(e, "unique");
		if (p.pci.empty())
			return false;
		out.push_back(std::move(p));
	}
	return true;
}

} // namespace

bool loadDescription(Description &d)
{
	vexo::ReadFail why = vexo::ReadFail::None;
	vexo::jsonc::Value root = vexo::jsonc::readFile(VEXO_PLATFORM_DESCRIPTION, &why);
	if (!root && why == vexo::ReadFail::Open) {
		VEXO_ERR(VEXO_ERR_NOENT);
		return false;
	}
	if (!root || !json_object_is_type(root.get(), json_type_object)) {
		vlog(LOG_ERR, "%s:%d bad platform description %s", VEXO_AT, VEXO_PLATFORM_DESCRIPTION);
		VEXO_ERR(VEXO_ERR_READ);
		return false;
	}
	Description out;
	out.model = text(root.get(), "model");
	json_object *v = nullptr;
	if (json_object_object_get_ex(root.get(), "ebox", &v))
		out.ebox = json_object_get_boolean(v);
	bool ok = readEntries(root.get(), "nvme_slots", out.nvmeSlots) &&
		  readEntries(root.get(), "adapter_slots", out.adapterSlots) &&
		  readEntries(root.get(), "pcie_eunits", out.pcieEunits);
	if (ok && json_object_object_get_ex(root.get(), "adapter_cards", &v)) {
		ok = json_object_is_type(v, json_type_object);
		if (ok) {
			json_object_object_foreach(v, card, attrs)
			{
				if (!json_object_is_type(attrs, json_type_object)) {
					ok = false;
					break;
				}
				auto &m = out.cards[card];
				json_object_object_foreach(attrs, attr, val) m[attr] = json_object_get_boolean(val);
			}
		}
	}
	if (!ok) {
		vlog(LOG_ERR, "%s:%d bad platform description %s", VEXO_AT, VEXO_PLATFORM_DESCRIPTION);
		VEXO_ERR(VEXO_ERR_READ);
		return false;
	}
	d = std::move(out);
	return true;
}

std::string diskName(const char *path)
{
	if (!path)
		return {};
	if (std::strncmp(path, "/dev/", 5) == 0)
		path += 5;
	std::string name(path);
	if (name.empty() || name.size() >= 32 || name.find('/') != std::string::npos || name[0] == '.')
		return {};
	bool afterP = false;
	for (const char *word : {"mmcblk", "nvc", "nvme", "sysd"})
		afterP = afterP || name.find(word) != std::string::npos;
	size_t cut = std::string::npos;
	if (afterP) {
		size_t p = name.rfind('p');
		if (p != std::string::npos && p + 1 < name.size() && std::isdigit(static_cast<unsigned char>(name[p + 1])))
			cut = p;
	} else {
		cut = name.find_first_of("0123456789");
	}
	if (cut != std::string::npos)
		name.resize(cut);
	return name;
}

std::vector<std::string> sysfsComponents(const std::string &name)
{
	std::vector<std::string> out;
	if (name.empty())
		return out;
	std::string link = "/sys/block/" + name;
	char real[PATH_MAX];
	if (!vexo::sysroot::realpath(link.c_str(), real))
		return out;
	for (char *save = nullptr, *c = strtok_r(real, "/", &save); c; c = strtok_r(nullptr, "/", &save))
		out.emplace_back(c);
	return out;
}

const PciEntry *deepestMatch(const std::vector<PciEntry> &entries, const std::vector<std::string> &components)
{
	for (auto c = components.rbegin(); c != components.rend(); ++c)
		for (const auto &e : entries)
			if (e.pci == *c)
				return &e;
	return nullptr;
}

} // namespace vexo::platform
