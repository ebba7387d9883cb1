// The compatibility databases and rule files a box ships with: one database
// for the host, one per adapter card and one per expansion unit model,
// small but in the delivered format, so that the drives of the bundled
// boxes get every kind of verdict; and the disk action database that tells
// which of the box's drives are the maker's own (their firmware is judged
// against the database's builds).
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

} // namespace

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
}

} // namespace vexosim
