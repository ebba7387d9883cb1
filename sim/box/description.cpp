// Parsing and checking of the appliance description.
#include "description.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <json-c/json.h>
#include <map>
#include <set>
#include <sstream>

namespace vexosim {

JsonRef::JsonRef(json_object *o) : obj(o) {}
JsonRef::~JsonRef()
{
	if (obj)
		json_object_put(obj);
}

std::string letterName(int index)
{
	return std::string("sd") + char('a' + index);
}

std::string unitDiskName(int portLetter, int bay)
{
	return std::string("sd") + char('a' + portLetter) + char('a' + bay - 1);
}

const Unit *Box::unitOn(int esataPort) const
{
	for (const auto &u : units)
		if (u.port == esataPort)
			return &u;
	return nullptr;
}

const PciSlot *Box::slotNumbered(int slot) const
{
	for (const auto &s : slots)
		if (s.slot == slot)
			return &s;
	return nullptr;
}

namespace {

const int kMaxLetters = 26; // the port maps are one bit per single letter

// One JSON object being read: every key must be consumed, so that a typo in
// a description is reported instead of silently ignored.
class Obj {
public:
	Obj(const std::string &file, std::string at, json_object *o) : file_(file), at_(std::move(at)), o_(o)
	{
		if (!json_object_is_type(o, json_type_object))
			fail("", "must be an object");
	}

	[[noreturn]] void fail(const std::string &key, const std::string &what) const
	{
		std::string where = at_;
		if (!key.empty())
			where += (where.empty() ? "" : ".") + key;
		throw DescriptionError(file_ + ": " + (where.empty() ? "(top)" : where) + ": " + what);
	}
	std::string path(const std::string &key) const { return at_.empty() ? key : at_ + "." + key; }

	json_object *raw(const char *key, bool required)
	{
		json_object *v = nullptr;
		if (!json_object_object_get_ex(o_, key, &v)) {
			if (required)
				fail(key, "missing");
			return nullptr;
		}
		used_.insert(key);
		return v;
	}
	bool has(const char *key) const { return json_object_object_get_ex(o_, key, nullptr); }

	std::string str(const char *key, bool required = true, const std::string &def = "")
	{
		json_object *v = raw(key, required);
		if (!v)
			return def;
		if (!json_object_is_type(v, json_type_string))
			fail(key, "must be a string");
		std::string s = json_object_get_string(v);
		if (s.empty())
			fail(key, "must not be empty");
		if (s.find_first_of("\n\r\"") != std::string::npos)
			fail(key, "must not hold quotes or line breaks");
		return s;
	}
	int64_t num(const char *key, int64_t lo, int64_t hi, bool required = true, int64_t def = 0)
	{
		json_object *v = raw(key, required);
		if (!v)
			return def;
		if (!json_object_is_type(v, json_type_int))
			fail(key, "must be an integer");
		errno = 0;
		int64_t n = json_object_get_int64(v);
		if (errno == ERANGE || n < lo || n > hi)
			fail(key, "out of range: " + std::to_string(n) + " (" + std::to_string(lo) + " to " +
					  std::to_string(hi) + ")");
		return n;
	}
	uint64_t unsignedNum(const char *key)
	{
		json_object *v = raw(key, true);
		if (!json_object_is_type(v, json_type_int) || json_object_get_int64(v) <= 0)
			fail(key, "must be a positive integer");
		return json_object_get_uint64(v);
	}
	json_object *array(const char *key)
	{
		json_object *v = raw(key, false);
		if (v && !json_object_is_type(v, json_type_array))
			fail(key, "must be an array");
		return v;
	}
	// A flat object of scalars, rendered as configuration values.
	KeyValues flat(const char *key)
	{
		KeyValues out;
		json_object *v = raw(key, false);
		if (!v)
			return out;
		Obj sub(file_, path(key), v);
		json_object_object_foreach(v, k, val)
		{
			sub.used_.insert(k);
			std::string s;
			switch (json_object_get_type(val)) {
			case json_type_string: s = json_object_get_string(val); break;
			case json_type_int: s = std::to_string(json_object_get_int64(val)); break;
			case json_type_boolean: s = json_object_get_boolean(val) ? "yes" : "no"; break;
			default: sub.fail(k, "must be a string, integer or boolean");
			}
			if (s.find_first_of("\n\r\"") != std::string::npos)
				sub.fail(k, "must not hold quotes or line breaks");
			if (std::string(k).find_first_of("=[] \t\n") != std::string::npos || !*k)
				sub.fail(k, "is not a usable key name");
			out.emplace_back(k, s);
		}
		return out;
	}
	void done() const
	{
		json_object_object_foreach(o_, k, v)
		{
			(void)v;
			if (!used_.count(k))
				fail(k, "unknown key");
		}
	}

private:
	const std::string &file_;
	std::string at_;
	json_object *o_;
	std::set<std::string> used_;
};

std::string readFile(const std::string &file)
{
	std::ifstream in(file, std::ios::binary);
	if (!in)
		throw DescriptionError(file + ": cannot read: " + std::strerror(errno));
	std::ostringstream ss;
	ss << in.rdbuf();
	return ss.str();
}

bool isPciAddress(const std::string &s)
{
	unsigned dom, bus, dev, fn;
	char tail;
	return s.size() == 12 && std::sscanf(s.c_str(), "%4x:%2x:%2x.%1x%c", &dom, &bus, &dev, &fn, &tail) == 4 &&
	       dev < 32 && fn < 8;
}

Where parseWhere(Obj &o)
{
	static const std::map<std::string, Where> kinds = {{"bay", Where::Bay},   {"esata", Where::Esata},
							    {"usb", Where::Usb},   {"unit", Where::Unit},
							    {"pci", Where::Pci},   {"sys", Where::Sys}};
	std::string w = o.str("where");
	auto it = kinds.find(w);
	if (it == kinds.end())
		o.fail("where", "unknown place \"" + w + "\" (bay, esata, usb, unit, pci, sys)");
	return it->second;
}

Device parseDevice(const std::string &file, const std::string &at, json_object *j)
{
	Obj o(file, at, j);
	Device d;
	d.at = at;
	d.name = o.str("name");
	d.where = parseWhere(o);
	switch (d.where) {
	case Where::Bay: d.bay = (int)o.num("bay", 1, kMaxLetters); break;
	case Where::Esata:
	case Where::Usb: d.port = (int)o.num("port", 1, kMaxLetters); break;
	case Where::Unit:
		d.port = (int)o.num("port", 1, kMaxLetters);
		d.bay = (int)o.num("bay", 1, kMaxLetters);
		break;
	case Where::Pci:
		d.slot = (int)o.num("slot", 1, 999);
		d.position = (int)o.num("position", 1, 64);
		break;
	case Where::Sys: d.position = (int)o.num("position", 1, 10); break;
	}
	d.protocol = o.str("protocol");
	if (d.protocol != "ata" && d.protocol != "scsi" && d.protocol != "nvme")
		o.fail("protocol", "unknown protocol \"" + d.protocol + "\" (ata, scsi, nvme)");
	d.model = o.str("model");
	d.serial = o.str("serial");
	d.firmware = o.str("firmware");
	// The kernel shows "ATA" for SATA disks; other transports name their maker.
	d.vendor = o.str("vendor", d.protocol != "ata", "ATA");
	d.driver = o.str("driver", false, d.where == Where::Usb ? "usb-storage" : "ahci");
	d.sizeBytes = o.unsignedNum("size_bytes");
	d.logicalBlockSize = (int)o.num("logical_block_size", 512, 4096, false, 512);
	if (d.logicalBlockSize & (d.logicalBlockSize - 1))
		o.fail("logical_block_size", "must be a power of two");
	if (d.sizeBytes % (uint64_t)d.logicalBlockSize)
		o.fail("size_bytes", "must be a multiple of logical_block_size");
	if (o.has("rotation_rate") && o.has("rotational"))
		o.fail("rotation_rate", "give either rotation_rate or rotational, not both");
	if (o.has("rotation_rate")) {
		d.rotationRate = (int)o.num("rotation_rate", 1, 65534);
	} else {
		json_object *r = o.raw("rotational", true);
		if (!json_object_is_type(r, json_type_boolean))
			o.fail("rotational", "must be true or false");
		d.rotationRate = json_object_get_boolean(r) ? 7200 : 1;
	}
	if (json_object *parts = o.array("partitions")) {
		uint64_t next = 2048; // first partition at 1 MiB, as partitioners place it
		for (size_t i = 0; i < json_object_array_length(parts); ++i) {
			Obj p(file, o.path("partitions") + "[" + std::to_string(i) + "]",
			      json_object_array_get_idx(parts, i));
			Partition part;
			part.number = (int)i + 1;
			part.sizeBytes = p.unsignedNum("size_bytes");
			if (part.sizeBytes % 512)
				p.fail("size_bytes", "must be a multiple of 512");
			part.startSector = next;
			next += part.sizeBytes / 512;
			if (next > d.sizeBytes / 512)
				p.fail("size_bytes", "partition ends beyond the end of the disk");
			p.done();
			d.partitions.push_back(part);
		}
	}
	if (json_object *drv = o.raw("drive", false)) {
		if (!json_object_is_type(drv, json_type_object))
			o.fail("drive", "must be an object");
		d.drive = std::make_shared<JsonRef>(json_object_get(drv));
	}
	o.done();
	return d;
}

// The name a device must have where it sits.
void checkPlace(const Box &box, Obj &o, const Device &d)
{
	auto want = [&](const std::string &name) {
		if (d.name != name)
			o.fail("name", "\"" + d.name + "\" cannot sit there: that place is \"" + name + "\"");
	};
	auto range = [&](const char *key, int v, int max, const std::string &what) {
		if (v > max)
			o.fail(key, std::to_string(v) + " out of range: the box has " + std::to_string(max) + " " +
					    what);
	};
	switch (d.where) {
	case Where::Bay:
		range("bay", d.bay, box.internalBays, "internal bays");
		want(letterName(d.bay - 1));
		break;
	case Where::Esata:
		range("port", d.port, box.esataPorts, "eSATA ports");
		if (box.unitOn(d.port))
			o.fail("port", "eSATA port " + std::to_string(d.port) + " holds an expansion unit");
		want(letterName(box.esataLetter(d.port)));
		break;
	case Where::Usb:
		range("port", d.port, box.usbPorts, "USB ports");
		want(letterName(box.usbLetter(d.port)));
		break;
	case Where::Unit: {
		const Unit *u = box.unitOn(d.port);
		if (!u)
			o.fail("port", "no expansion unit on eSATA port " + std::to_string(d.port));
		range("bay", d.bay, u->bays, "bays in its expansion unit");
		want(unitDiskName(box.esataLetter(d.port), d.bay));
		break;
	}
	case Where::Pci: {
		const PciSlot *s = box.slotNumbered(d.slot);
		if (!s)
			o.fail("slot", "no PCI slot " + std::to_string(d.slot) + " in pci_slots");
		range("position", d.position, s->sockets, "sockets on its card");
		unsigned n;
		char tail;
		if (d.protocol == "nvme") {
			if (std::sscanf(d.name.c_str(), "nvme%un1%c", &n, &tail) != 1 ||
			    d.name != "nvme" + std::to_string(n) + "n1")
				o.fail("name", "an NVMe device is named nvme<n>n1, not \"" + d.name + "\"");
		} else if (d.protocol == "ata") {
			if (std::sscanf(d.name.c_str(), "nvc%u%c", &n, &tail) != 1 ||
			    d.name != "nvc" + std::to_string(n))
				o.fail("name", "a SATA device on an adapter card is named nvc<n>, not \"" + d.name + "\"");
		} else {
			o.fail("protocol", "an adapter card holds nvme or ata devices");
		}
		break;
	}
	case Where::Sys:
		want("sysd" + std::to_string(d.position));
		break;
	}
	if (d.where != Where::Pci && d.protocol == "nvme")
		o.fail("protocol", "NVMe devices sit on an adapter card (where \"pci\")");
}

std::string placeKey(const Device &d)
{
	switch (d.where) {
	case Where::Bay: return "bay " + std::to_string(d.bay);
	case Where::Esata: return "eSATA port " + std::to_string(d.port);
	case Where::Usb: return "USB port " + std::to_string(d.port);
	case Where::Unit: return "unit on eSATA port " + std::to_string(d.port) + " bay " + std::to_string(d.bay);
	case Where::Pci:
		return "PCI slot " + std::to_string(d.slot) + " position " + std::to_string(d.position);
	case Where::Sys: return "system device " + std::to_string(d.position);
	}
	return "";
}

} // namespace

Box parse(const std::string &file)
{
	std::string text = readFile(file);
	json_tokener_error err = json_tokener_success;
	JsonRef root(json_tokener_parse_verbose(text.c_str(), &err));
	if (!root.get())
		throw DescriptionError(file + ": not JSON: " + json_tokener_error_desc(err));

	Box box;
	box.source = file;
	Obj top(file, "", root.get());
	box.model = top.str("model");
	box.unique = top.str("unique", false, "vexology_x86_" + box.model);
	for (char &c : box.unique)
		c = (char)std::tolower((unsigned char)c);

	{
		json_object *v = top.raw("version", true);
		Obj ver(file, "version", v);
		ver.num("base", 0, 0xFFFFFFFFLL);
		ver.num("nano", 0, 0xFFFFFFFFLL);
		box.version = top.flat("version");
	}

	{
		Obj ports(file, "ports", top.raw("ports", true));
		box.internalBays = (int)ports.num("internal", 0, kMaxLetters);
		box.esataPorts = (int)ports.num("esata", 0, kMaxLetters, false);
		box.usbPorts = (int)ports.num("usb", 0, kMaxLetters, false);
		box.cacheSlots = (int)ports.num("cache", 0, kMaxLetters, false);
		ports.done();
		if (box.internalBays + box.esataPorts + box.usbPorts + box.cacheSlots > kMaxLetters)
			top.fail("ports", "more than 26 ports: the port maps have one bit per letter sda to sdz");
	}

	box.vexoinfo = top.flat("vexoinfo");
	for (const auto &[k, v] : box.vexoinfo) {
		(void)v;
		static const std::set<std::string> computed = {"upnpmodelname", "unique", "maxdisks",
								"internalportcfg", "esataportcfg", "usbportcfg",
								"cacheportcfg"};
		if (computed.count(k))
			top.fail("vexoinfo." + k, "set from model, unique and ports; remove it here");
	}

	if (json_object *slots = top.array("pci_slots")) {
		std::set<std::string> ids;
		for (size_t i = 0; i < json_object_array_length(slots); ++i) {
			std::string at = "pci_slots[" + std::to_string(i) + "]";
			Obj s(file, at, json_object_array_get_idx(slots, i));
			PciSlot slot;
			slot.slot = (int)s.num("slot", 1, 999);
			slot.pciId = s.str("pci_id");
			if (!isPciAddress(slot.pciId) || slot.pciId.compare(0, 8, "0000:00:") != 0)
				s.fail("pci_id", "\"" + slot.pciId + "\" is not a root port address like 0000:00:01.0");
			slot.card = s.str("card");
			slot.sockets = (int)s.num("sockets", 1, 64);
			s.done();
			if (box.slotNumbered(slot.slot))
				s.fail("slot", "duplicate PCI slot " + std::to_string(slot.slot));
			if (!ids.insert(slot.pciId).second)
				s.fail("pci_id", "duplicate PCI address " + slot.pciId);
			box.slots.push_back(slot);
		}
	}

	if (json_object *units = top.array("units")) {
		for (size_t i = 0; i < json_object_array_length(units); ++i) {
			std::string at = "units[" + std::to_string(i) + "]";
			Obj u(file, at, json_object_array_get_idx(units, i));
			Unit unit;
			unit.port = (int)u.num("port", 1, kMaxLetters);
			if (unit.port > box.esataPorts)
				u.fail("port", std::to_string(unit.port) + " out of range: the box has " +
						       std::to_string(box.esataPorts) + " eSATA ports");
			if (box.unitOn(unit.port))
				u.fail("port", "a second expansion unit on eSATA port " + std::to_string(unit.port));
			unit.model = u.str("model");
			unit.bays = (int)u.num("bays", 1, kMaxLetters);
			unit.pmInfo = u.flat("pm_info");
			u.done();
			for (const auto &[k, v] : unit.pmInfo)
				if (k == "vexo_device_list" || k == "Unique")
					u.fail("pm_info." + k, "set from the unit's model and disks; remove it here");
			box.units.push_back(std::move(unit));
		}
	}

	json_object *devs = top.array("devices");
	top.done();
	if (!devs)
		return box;

	std::map<std::string, std::string> names, places;
	for (size_t i = 0; i < json_object_array_length(devs); ++i) {
		std::string at = "devices[" + std::to_string(i) + "]";
		json_object *j = json_object_array_get_idx(devs, i);
		Device d = parseDevice(file, at, j);
		Obj o(file, at, j);
		if (auto [it, fresh] = names.emplace(d.name, at); !fresh)
			o.fail("name", "duplicate name \"" + d.name + "\" (also " + it->second + ")");
		checkPlace(box, o, d);
		if (auto [it, fresh] = places.emplace(placeKey(d), at); !fresh)
			o.fail("where", placeKey(d) + " is taken by " + it->second);
		box.devices.push_back(std::move(d));
	}
	return box;
}

} // namespace vexosim
