// The disk overview document against emulated drives: a disk keeps its
// element across bays and boots, boot repairs old elements and tells which
// bays changed, and damaged files are rebuilt and kept.
#include <cstddef>
#include <syslog.h>

#include "frame/clock.h"
#include <vexohw/disk_status.h>
#include <vexohw/smart_info.h>
#include "overview_doc/overview_fixture.h"

using namespace vexo::test;

static_assert(sizeof(DiskAttrCounters) == 32 && offsetof(DiskAttrCounters, resetFail) == 20 &&
	      offsetof(DiskAttrCounters, deepsleep) == 28);
static_assert(sizeof(DiskHealthHistoryEntry) == 32 && offsetof(DiskHealthHistoryEntry, unc) == 16 &&
	      offsetof(DiskHealthHistoryEntry, remainLife) == 28);
static_assert(sizeof(diskXMLAttrArray) == 10 * 256);

namespace {

TEST_F(OverviewDoc, ADiskKeepsItsElementAcrossBays)
{
	std::string sda = disk(1, "ZL2K4T7C");
	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, sda.c_str()), 0);
	for (const char *c : {"unc", "unc", "icrc", "no_such_child"})
		VEXODiskXmlAttrCtUpdate(c, "ZL2K4T7C");
	EXPECT_EQ(at("ZL2K4T7C", "path"), "/dev/sda");
	EXPECT_EQ(at("ZL2K4T7C", "sata_internal_slot"), "1");

	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(0, "/dev/sda"), 0);
	EXPECT_EQ(at("ZL2K4T7C", "path"), "null");
	EXPECT_EQ(at("ZL2K4T7C", "sata_internal_slot"), "-1");
	std::string sdc = disk(3, "ZL2K4T7C");
	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, sdc.c_str()), 0);
	EXPECT_EQ(at("ZL2K4T7C", "sata_internal_slot"), "3");
	DiskAttrCounters ct{};
	ASSERT_EQ(VEXODiskXmlAttrCtGet("/dev/sdc", &ct), 0);
	EXPECT_EQ(ct.unc, 2);
	EXPECT_EQ(ct.icrc, 1);
	EXPECT_EQ(ct.retry, 0);
	EXPECT_EQ(doc().find("<SN_ZL2K4T7C"), doc().rfind("<SN_ZL2K4T7C")) << doc();

	// A new disk in the bay takes it over even when the old one left unannounced.
	disk(3, "WD0NEW01");
	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(1, "/dev/sdc"), 0);
	EXPECT_EQ(at("ZL2K4T7C", "path"), "null");
	EXPECT_EQ(at("WD0NEW01", "path"), "/dev/sdc");
	// Pulling a path nobody holds still saves and logs, with nothing known.
	ASSERT_EQ(VEXODiskXmlHotPlugUpdate(0, "/dev/sdb"), 0);
	auto ev = events();
	ASSERT_EQ(ev.size(), 5u);
	EXPECT_EQ(ev[0].substr(0, 27), "7|VEXO HAT5300-8T|ZL2K4T7C|") << ev[0];
	EXPECT_EQ(ev[1].substr(0, 2), "8|");
	EXPECT_EQ(ev[4].substr(0, 4), "8|||") << ev[4];

	// A serial that cannot be an element name is refused, and the document stays readable.
	std::string bad = disk(2, "AB#12/3");
	EXPECT_EQ(VEXODiskXmlHotPlugUpdate(1, bad.c_str()), -1);
	EXPECT_TRUE(vexo::xml::readFile(VEXO_DISK_OVERVIEW_XML));
	EXPECT_EQ(VEXODiskXmlAttrCtGet(bad.c_str(), &ct), -1);
	EXPECT_EQ(VEXODiskXmlAttrCtGet(sdc.c_str(), nullptr), -1);
}

TEST_F(OverviewDoc, BootRepairsElementsAndTellsWhichBaysChanged)
{
	disk(1, "ZL2K4T7C");
	disk(4, "WD0NEW01");
	// ZL2K4T7C lacks hibernation and has icrc out of place; OLD left bay 3.
	root.write(VEXO_DISK_OVERVIEW_XML,
		   "<?xml version=\"1.0\"?><overview><SN_ZL2K4T7C model=\"m\" uiserial=\"u\"><path>null</path>"
		   "<icrc>4</icrc><unc>7</unc><idnf>1</idnf><retry>2</retry><deepsleep>5</deepsleep><timeout>6</timeout>"
		   "<reset_fail>8</reset_fail><sata_internal_slot>1</sata_internal_slot><history>2026/11,1,,2,99</history>"
		   "</SN_ZL2K4T7C><SN_OLD00001 model=\"m\" uiserial=\"u\"><path>/dev/sdc</path><unc>0</unc><icrc>0</icrc>"
		   "<idnf>0</idnf><retry>0</retry><hibernation>0</hibernation><deepsleep>0</deepsleep><timeout>0</timeout>"
		   "<reset_fail>0</reset_fail><sata_internal_slot>3</sata_internal_slot></SN_OLD00001></overview>");
	DiskListNode *disks = list({"/dev/sda", "/dev/sdd"});
	ASSERT_EQ(VEXODiskOverviewXmlInit(disks), 0);
	SharedDiskInfoEnumFree(&disks);

	vexo::xml::Doc d = vexo::xml::readFile(VEXO_DISK_OVERVIEW_XML);
	std::string order;
	for (xmlNode *c = vexo::overview::firstElement(vexo::overview::diskElement(d, "ZL2K4T7C")); c;
	     c = vexo::overview::nextElement(c))
		order += std::string(reinterpret_cast<const char *>(c->name)) + "=" + vexo::overview::text(c) + " ";
	EXPECT_EQ(order, "path=/dev/sda unc=7 icrc=4 idnf=1 retry=2 hibernation=0 deepsleep=5 timeout=6 reset_fail=8 "
			 "sata_internal_slot=1 history=2026/11,1,,2,99 ");
	EXPECT_EQ(at("OLD00001", "path"), "null");
	EXPECT_EQ(at("OLD00001", "sata_internal_slot"), "-1");
	EXPECT_EQ(at("WD0NEW01", "sata_internal_slot"), "4");
	EXPECT_EQ(events(), (std::vector<std::string>{"91|WD0NEW01|4|", "92|OLD00001|3|"}));

	// History: the months that fall in the twelve ending now, as recorded.
	struct tm tm {};
	tm.tm_year = 2027 - 1900, tm.tm_mon = 0, tm.tm_mday = 15, tm.tm_hour = 12;
	vexo::clock::setForTest(std::mktime(&tm), 0);
	DiskHealthHistoryEntry h[12];
	EXPECT_EQ(VEXODiskXmlParseHistory("/dev/sda", h, 11), -1);
	int rc = VEXODiskXmlParseHistory("/dev/sda", h, 12);
	vexo::clock::clearForTest();
	ASSERT_EQ(rc, 0);
	EXPECT_EQ(h[9].uncValid + h[9].idnfValid + h[9].retryValid + h[9].remainLifeValid, 3); // November
	EXPECT_EQ(h[9].unc * 100 + h[9].retry * 10 + h[9].remainLife, 100 + 20 + 99);
	EXPECT_EQ(h[11].uncValid + h[10].uncValid + h[0].uncValid, 0);

	// On a SAS-capable appliance no disk has a bay number.
	root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xf"}, {"support_sas", "yes"}});
	disks = list({"/dev/sda"});
	ASSERT_EQ(VEXODiskOverviewXmlInit(disks), 0);
	SharedDiskInfoEnumFree(&disks);
	EXPECT_EQ(at("ZL2K4T7C", "sata_internal_slot"), "-1");
	EXPECT_EQ(VEXODiskOverviewModelCheck("  VEXO HAT5300-8T "), 1);
	EXPECT_EQ(VEXODiskOverviewModelCheck("m"), 1); // an element keeps the model it was made with
	EXPECT_EQ(VEXODiskOverviewModelCheck("VEXO HAT5300"), 0);
	EXPECT_EQ(VEXODiskOverviewModelCheck(nullptr), 0);
}

TEST_F(OverviewDoc, DamagedDocumentIsRebuiltAndKeptInFiveGenerations)
{
	LogCapture log;
	disk(1, "ZL2K4T7C");
	for (int i = 1; i <= 6; ++i) {
		root.write(VEXO_DISK_OVERVIEW_XML, "<overview><SN_X>damaged " + std::to_string(i));
		xmlDoc *d = nullptr;
		xmlNode *r = nullptr;
		ASSERT_EQ(DiskOverviewXmlParse(&d, &r, 0), 0) << log.dump();
		xmlFreeDoc(d);
	}
	for (int g = 1; g <= 5; ++g) {
		std::string out, file = root.host(VEXO_DISK_OVERVIEW_XML) + "." + std::to_string(g) + ".xz";
		ASSERT_EQ(runProgram({"xz", "-dc", file}, &out), 0) << g;
		EXPECT_EQ(out, "<overview><SN_X>damaged " + std::to_string(7 - g));
	}
	EXPECT_FALSE(root.exists(std::string(VEXO_DISK_OVERVIEW_XML) + ".6.xz"));
	EXPECT_EQ(log.count(LOG_ERR, "DiskOverviewXml been damaged"), 6);
	EXPECT_EQ(at("ZL2K4T7C", "path"), "/dev/sda");
	EXPECT_TRUE(root.exists("/var/run/.vexo_disk_bootup_init_done"));
}


// Current health from the drive's attributes and the document's counters,
// and the history built from stored months and the current values.
TEST_F(OverviewDoc, CurrentHealthAndHistory)
{
	disk(1, "ZL2K4T7C");
	root.diskDir("sda");
	root.write("/usr/bin/smartctl",
		   "#!/bin/sh\ncat <<'EOF'\nID# ATTRIBUTE_NAME          FLAG     VALUE WORST THRESH TYPE      UPDATED  "
		   "WHEN_FAILED RAW_VALUE\n"
		   "  5 Reallocated_Sector_Ct   0x0033   100   100   010    Pre-fail  Always       -       2147483647\n"
		   "197 Current_Pending_Sector  0x0012   100   100   000    Old_age   Always       -       4\n"
		   "199 UDMA_CRC_Error_Count    0x003e   200   200   000    Old_age   Always       -       3\n"
		   "231 SSD_Life_Left           0x0013   087   087   000    Old_age   Always       -       0\n\nEOF\n",
		   0755);
	ASSERT_EQ(VEXODiskAtaSmartInfoUpdate("/dev/sda"), 0);
	root.write(VEXO_DISK_OVERVIEW_XML,
		   "<overview><SN_ZL2K4T7C model=\"m\" uiserial=\"u\"><path>/dev/sda</path><unc>0</unc><icrc>1</icrc>"
		   "<idnf>2</idnf><retry>4</retry><sata_internal_slot>1</sata_internal_slot>"
		   "<history>2026/10,1,0,2,;2026/12,3,,,90;junk;2025/12,9,9,9,9</history></SN_ZL2K4T7C></overview>");
	DiskHealthAttr a{};
	ASSERT_EQ(VEXODiskCurHealthAttrGet("/dev/sda", &a), 0);
	EXPECT_EQ(a.unc, 0x7FFFFFFF); // saturated, not wrapped
	EXPECT_EQ(a.retry, 3 + 4 + 1);
	EXPECT_EQ(a.idnf, 2);
	EXPECT_EQ(a.remainLife, 87);
	EXPECT_STREQ(a.lifeAttribute, "SSD_Life_Left");

	struct tm tm {};
	tm.tm_year = 2027 - 1900, tm.tm_mon = 0, tm.tm_mday = 15, tm.tm_hour = 12;
	vexo::clock::setForTest(std::mktime(&tm), 0);
	DiskHealthHistoryEntry diff[12], sum[12];
	int rcDiff = VEXODiskHealthHistoryGet("/dev/sda", diff, 12, VEXO_DISK_HEALTH_DIFF);
	int rcSum = VEXODiskHealthHistoryGet("/dev/sda", sum, 12, VEXO_DISK_HEALTH_CUMULATIVE);
	int rcBad = VEXODiskHealthHistoryGet("/dev/sda", sum, 12, 2) + VEXODiskHealthHistoryGet("/dev/sda", sum, 11, 0);
	vexo::clock::clearForTest();
	ASSERT_EQ(rcDiff, 0);
	ASSERT_EQ(rcSum, 0);
	EXPECT_EQ(rcBad, -2);
	// "valid:value" of unc, idnf, retry and life for October 2026 (slot 8) to January 2027.
	auto row = [](const DiskHealthHistoryEntry &e) {
		return std::to_string(e.uncValid) + ":" + std::to_string(e.unc) + " " + std::to_string(e.idnfValid) + ":" +
		       std::to_string(e.idnf) + " " + std::to_string(e.retryValid) + ":" + std::to_string(e.retry) + " " +
		       std::to_string(e.remainLifeValid) + ":" + std::to_string(e.remainLife);
	};
	EXPECT_EQ(row(sum[7]), "0:0 0:0 0:0 0:0");
	EXPECT_EQ(row(sum[8]), "1:1 1:0 1:2 0:0");
	EXPECT_EQ(row(sum[9]), "1:1 1:0 1:2 0:0");
	EXPECT_EQ(row(sum[10]), "1:3 1:0 1:2 1:90");
	EXPECT_EQ(row(sum[11]), "1:3 1:0 1:2 1:90");
	EXPECT_EQ(row(diff[8]), "1:0 1:0 1:0 0:0");
	EXPECT_EQ(row(diff[9]), "1:2 1:0 1:0 0:0");
	EXPECT_EQ(row(diff[10]), "1:0 1:0 1:0 1:0");
	EXPECT_EQ(row(diff[11]), "1:2147483644 1:2 1:6 1:-3");
}

} // namespace
