// The compatibility databases and rule files a box ships with: one database
// for the host, one per adapter card and one per expansion unit model,
// small but in the delivered format, so that the drives of the bundled
// boxes get every kind of verdict; and the disk action database that tells
// which of the box's drives are the maker's own (their firmware is judged
// against the database's builds), with the drive attribute database of
// their NVMe models.
#include "compat_files.h"

#include <cctype>
#include <set>

namespace vexosim {

namespace {

constexpr const char *kDir = "/var/lib/disk-compatibility/";
// The vendor word that makes a drive the maker's own.
constexpr const char *kMaker = "Vexology";

std::string lower(std::string s)
{
	for (char &c : s)
		c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
	return s;
}

// Host bays: supported, unverified, incompatible drives, one listed by
// pattern, one by its "default" firmware, one through a mapped word, one
// meant for an expansion unit; drives not listed stay unverified.
constexpr const char *kHostDb = R"({"disk_compatbility_info":{
 "ST8000VN004-3CP101":{"SC60":{"vos_ver":["69057.0"],"compatibility_interval":[
   {"compatibility":"unverified"},{"compatibility":"support"}]}},
 "ST4000VN006-3CW104":{"default":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}]}},
 "^WDC WD[0-9]+EFPX-":{"81.00A81":{"vos_ver":["64570.0","79000.0"],"compatibility_interval":[
   {"compatibility":"unverified"},{"compatibility":"support","smart_attr_ignore":false},
   {"compatibility":"support"}]}},
 "TOSHIBA MG08ACA16TE":{"0102":{"vos_ver":["72806.0"],"compatibility_interval":[
   {"compatibility":"support"},{"compatibility":"not_support","smart_test_ignore":true}]}},
 "Samsung SSD 870 EVO":{"default":{"vos_ver":[],"compatibility_interval":[{"compatibility":"unverified"}]}},
 "TOSHIBA HDWG480":{"default":{"vos_ver":[],"compatibility_interval":[{"compatibility":"for_eunit"}]}},
 "WDC WD80EFPX-68C4ZN0":{"default":{"vos_ver":[],"compatibility_interval":[{"compatibility":"for_eunit"}]}}
},"DB_Mapping":[{"time":"90000.0","str":"support_legacy","mapping":"support"}]})";

// Adapter cards: the maker's own SSD on a firmware that this system no
// longer accepts, with a newer build that it does.
constexpr const char *kCardDb = R"({"disk_compatbility_info":{
 "WD Red SN700":{"default":{"vos_ver":["72806.0"],"compatibility_interval":[
   {"compatibility":"unverified"},{"compatibility":"support_legacy"}]}},
 "VEXO NM410 400GB":{
   "VN0230":{"vos_ver":["72000.0"],"compatibility_interval":[{"compatibility":"support"},
     {"compatibility":"not_support"}],"fw_buildnumber":230,"firm_bin":"VEXO_NM410_VN0230.bin"},
   "VN0310":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}],
     "fw_buildnumber":310,"firm_bin":"VEXO_NM410_VN0310.bin"}}
},"DB_Mapping":[{"time":"90000.0","str":"support_legacy","mapping":"support"}]})";

// Expansion units.
constexpr const char *kUnitDb = R"({"disk_compatbility_info":{
 "ST4000VN006-3CW104":{"SC60":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}]}},
 "ST8000VN004-3CP101":{"SC60":{"vos_ver":[],"compatibility_interval":[{"compatibility":"support"}]}},
 "TOSHIBA HDWG480":{"default":{"vos_ver":[],"compatibility_interval":[{"compatibility":"for_eunit"}]}},
 "TOSHIBA MG08ACA16TE":{"0102":{"vos_ver":[],"compatibility_interval":[{"compatibility":"not_support"}]}}
}})";

constexpr const char *kHostRules = R"({"rules":[
 {"property":{"positive":{"compatibility":"support"},"negative":{}},
  "actions":{"ui_compatibility":"support","notification":false,"alert":false}},
 {"property":{"positive":{"compatibility":"fw_upgrade_required"},"negative":{}},
  "actions":{"ui_compatibility":"fw_upgrade_required","notification":true,"selectable":false,"can_select_after_fwupgrade":true}},
 {"property":{"positive":{"compatibility":"not_support"},"negative":{}},
  "actions":{"ui_compatibility":"not_support","notification":true,"selectable":false,"hide_remain_life":true,
   "show_lifetime_chart":false,"send_health_report":false}},
 {"property":{"positive":{},"negative":{}},
  "actions":{"ui_compatibility":"not_in_support","notification":false,"notify_unc":false}}]})";

constexpr const char *kUnitRules = R"({"rules":[
 {"property":{"positive":{"compatibility":"for_eunit"},"negative":{}},
  "actions":{"ui_compatibility":"support","notification":false}},
 {"property":{"positive":{"compatibility":"support"},"negative":{}},
  "actions":{"ui_compatibility":"support","notification":false,"alert":false}},
 {"property":{"positive":{"compatibility":"not_support"},"negative":{"host_compatibility":"support"}},
  "actions":{"ui_compatibility":"not_support","notification":true,"selectable":false}},
 {"property":{"positive":{},"negative":{}},
  "actions":{"ui_compatibility":"not_in_support","notification":false}}]})";

// Text safe inside an XML attribute value.
std::string xmlAttr(const std::string &s)
{
	std::string o;
	for (char c : s) {
		switch (c) {
		case '&': o += "&amp;"; break;
		case '<': o += "&lt;"; break;
		case '>': o += "&gt;"; break;
		case '"': o += "&quot;"; break;
		default: o += c;
		}
	}
	return o;
}

// Text safe inside a JSON string.
std::string jsonText(const std::string &s)
{
	std::string o;
	for (char c : s) {
		if (c == '"' || c == '\\')
			o += '\\';
		if (static_cast<unsigned char>(c) >= 0x20)
			o += c;
	}
	return o;
}

// What the drive attribute database says of one of the maker's NVMe
// models: the fields of its vendor log 0xCA (the layout the drive emulator
// answers), and its drive bundle settings, with the later bad blocks as the
// bad-block attribute (type 2: id 162, all 32 bits, no shift).
constexpr const char *kNvmeAttrEntry = R"({
  "nvme_smart_vendor_specific": { "0xca": { "length": "512", "attributes": {
    "Program Fail Count": { "offset": "0", "size": "4", "hide_name": "0" },
    "Erase Fail Count": { "offset": "4", "size": "4", "hide_name": "0" },
    "Later Bad Block Count": { "offset": "8", "size": "4", "hide_name": "0" },
    "Factory Bad Block Count": { "offset": "12", "size": "4", "hide_name": "0" },
    "Average Erase Count": { "offset": "16", "size": "4", "hide_name": "0" },
    "Max Erase Count": { "offset": "20", "size": "4", "hide_name": "0" },
    "NAND Bytes Written": { "offset": "24", "size": "8", "hide_name": "0" },
    "Host Bytes Written": { "offset": "32", "size": "8", "hide_name": "0" },
    "Thermal Throttle Count": { "offset": "40", "size": "2", "hide_name": "1" } } } },
  "is_bundle": "yes", "available_firmware": "VN0230", "available_firmware_binary": "VN0230.bin",
  "mask": "0x0", "order": "1", "later_bad_block_count": "0", "bad_block_cnt_thr": "100",
  "avg_erase_count": "3000", "bundle_smart_attrs": "2:162:0xffffffff:0", "bundle_reserve_1": "" })";

} // namespace

std::string driveAttributeDb(const Box &box)
{
	std::string db = "{";
	std::set<std::string> listed;
	for (const Device &d : box.devices)
		if (d.vendor == kMaker && d.protocol == "nvme" && !d.model.empty() && listed.insert(d.model).second)
			db += std::string(listed.size() > 1 ? ",\n" : "\n") + " \"" + jsonText(d.model) + "\": " + kNvmeAttrEntry;
	return db + "\n}\n";
}

std::string diskActionXml(const Box &box)
{
	std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<diskaction>\n";
	std::set<std::string> listed;
	for (const Device &d : box.devices)
		if (d.vendor == kMaker && !d.model.empty() && listed.insert(d.model).second)
			xml += "  <disk model=\"" + xmlAttr(d.model) + "\" vendor=\"" + kMaker + "\" action=\"0x0\"/>\n";
	return xml + "</diskaction>\n";
}

void compatFiles(const Box &box, Tree &tree)
{
	const std::string model = lower(box.model);
	tree.dir("/var/lib/disk-compatibility");
	tree.file(std::string(kDir) + model + "_host_v7.db", kHostDb);
	std::set<std::string> done;
	for (const PciSlot &s : box.slots)
		if (!s.card.empty() && done.insert(s.card).second)
			tree.file(std::string(kDir) + model + "_" + lower(s.card) + "_v7.db", kCardDb);
	for (const Unit &u : box.units)
		if (done.insert(u.model).second)
			tree.file(std::string(kDir) + lower(u.model) + "_v7.db", kUnitDb);
	tree.file(std::string(kDir) + "host_rule.db", kHostRules);
	tree.file(std::string(kDir) + "eunit_rule.db", kUnitRules);
	tree.dir("/var/lib/diskaction");
	tree.file("/var/lib/diskaction/diskaction.xml", diskActionXml(box));
	tree.dir("/var/lib/drive_attribute");
	tree.file("/var/lib/drive_attribute/drive_attribute.db", driveAttributeDb(box));
}

} // namespace vexosim
