// NVMe SMART information: the verdicts on the health values, the vendor
// attributes the drive attribute database describes, the commands the
// drive is sent, the critical warning cache, remaining life and the bundle
// settings built on the database.
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <syslog.h>
#include <vexohw/disk_status.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_nvme.h>
#include <vexohw/ssd_bundle.h>
#include <vexoplatform/nvme_smart.h>

#include "smartctl/attr_db.h"
#include "smartctl/nvme_smart.h"
#include "smartctl/sim_disk.h"
#include "smartctl/smart_info_list.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();
const char *kMakerModel = "VEXO NM410 400GB";

// "name=value" pairs into a list of health entries.
SmartInfoEntry *entries(const std::vector<std::pair<const char *, const char *>> &rows)
{
	vexo::smart::ListBuilder b;
	for (const auto &[name, value] : rows)
		b.append(vexo::smart::newEntry("1", name, value, "", "", value));
	return b.release();
}

std::map<std::string, const SmartInfoEntry *> byName(const SmartInfoEntry *l)
{
	std::map<std::string, const SmartInfoEntry *> m;
	for (; l; l = l->next)
		m.emplace(l->name, l);
	return m;
}

TEST(NvmeJudge, VerdictsOnTheHealthValues)
{
	struct Row {
		std::vector<std::pair<const char *, const char *>> list;
		bool ok;
		std::vector<uint32_t> status;
	} rows[] = {
		{{{"Available Spare", "10%"}, {"Available Spare Threshold", "10%"}}, true, {2, 0}},
		{{{"Available Spare", "11%"}, {"Available Spare Threshold", "10%"}}, true, {0, 0}},
		{{{"Available Spare", "3%"}}, true, {0}}, // no threshold: no comparison
		{{{"Percentage Used", "99%"}}, true, {0}},
		{{{"Percentage Used", "100%"}}, true, {2}},
		{{{"Critical Warning", "0x0"}}, true, {0}},
		{{{"Critical Warning", "0x04"}}, true, {2}},
		{{{"Percentage Used", "n/a"}}, false, {}},
		{{{"Available Spare", "x"}, {"Available Spare Threshold", "10%"}}, false, {}},
	};
	for (const Row &r : rows) {
		vexo::smart::UniqueList l(entries(r.list));
		EXPECT_EQ(vexo::smart::nvmeJudge("/dev/nvme0n1", l.get()), r.ok) << r.list[0].first << r.list[0].second;
		size_t i = 0;
		for (const SmartInfoEntry *e = l.get(); e && r.ok; e = e->next, ++i)
			EXPECT_EQ(e->status, r.status[i]) << e->name << " " << e->value;
	}
}

TEST(NvmeVendor, FieldsOfALogPage)
{
	const uint8_t page[5] = {0x11, 0x22, 0x33, 0x44, 0x55};
	std::vector<std::pair<unsigned, unsigned>> asked;
	auto reader = [&](unsigned p, uint8_t *b, unsigned n) {
		asked.emplace_back(p, n);
		std::memcpy(b, page, std::min<unsigned>(n, sizeof(page)));
		return p == 0xca;
	};
	const std::string ok = R"("length": "5", "attributes": {
		"Later Bad Block Count": {"offset": "4", "size": "2", "hide_name": "0"},
		"Erase Fail Count": {"offset": "0x1", "size": 3, "hide_name": "1"},
		"Program Fail Count": {"offset": "3", "size": "2"}})";
	struct Row {
		std::string disk;
		int rc;
		std::string want; // "id name value;" per entry
	} rows[] = {
		{"{\"0xca\": {" + ok + "}}", 0, "162 Later Bad Block Count 0;161 Vendor Specific 4469538;160 Program Fail Count 21828;"},
		{"{\"0xcb\": {" + ok + "}}", -1, ""}, // the drive keeps no such page
		{R"({"0xca": {"length": "5", "attributes": {"No Such Thing": {"offset": "0", "size": "1"}}}})", -1, ""},
		{R"({"0xca": {"attributes": {}}})", -1, ""},
		{R"({"0xca": {"length": "0", "attributes": {}}})", -1, ""},
		{R"({"0xca": {"length": "5"}})", -1, ""},
	};
	for (const Row &r : rows) {
		vexo::jsonc::Value pages = vexo::jsonc::parseWhole(r.disk);
		ASSERT_TRUE(pages) << r.disk;
		vexo::jsonc::Value disk(json_object_new_object());
		json_object_object_add(disk.get(), "nvme_smart_vendor_specific", json_object_get(pages.get()));
		SmartInfoEntry *out = nullptr;
		EXPECT_EQ(vexo::attrdb::vendorEntries(disk.get(), "/dev/nvme0n1", reader, &out), r.rc) << r.disk;
		vexo::smart::UniqueList l(out);
		std::string got;
		for (const SmartInfoEntry *e = out; e; e = e->next) {
			got += std::string(e->id) + " " + e->name + " " + e->value + ";";
			EXPECT_STREQ(e->raw, e->value);
			EXPECT_STREQ(e->worst, "");
		}
		EXPECT_EQ(got, r.want) << r.disk;
	}
	EXPECT_EQ(asked.front(), std::make_pair(0xcau, 5u));
	SmartInfoEntry *out = nullptr;
	EXPECT_EQ(vexo::attrdb::vendorEntries(nullptr, "/dev/nvme0n1", reader, &out), -1); // no vendor pages
}

TEST(NvmeVendor, DatabaseEntryOfAModel)
{
	const std::pair<const char *, int> rows[] = {{"{\"M\": {\"a\": 1}}", 0}, {"{\"N\": {}}", 1}, {"{\"M\": \"x\"}", -1},
						     {"[{\"M\": {}}]", -1},	{"{\"M\": {}", -1}, {"", -1}};
	for (const auto &[text, rc] : rows) {
		vexo::jsonc::Value v;
		EXPECT_EQ(vexo::attrdb::select(text, "M", v), rc) << text;
		EXPECT_EQ(v != nullptr, rc == 0) << text;
	}
}

TEST(SsdBundle, AttributeOfAFigure)
{
	// Type 2 looked up; "" for a text refused, else "id mask shift".
	const std::pair<const char *, const char *> rows[] = {
		{"2:162:0xffffffff:0", "162 4294967295 0"}, {"1:5:0xff:0;2:170:0xff00:8;2:9:1:0", "170 65280 8"},
		{" 2 : 5 : 0x1 : 63 ;", "5 1 63"},	   {"1:5:0xff:0", ""}, {"2:0:1:0", ""}, {"2:5:1", ""},
		{"2:5:1:64", ""}, {"2:5:1:0:9", ""}, {"2:5:-1:0", ""}, {"", ""}};
	for (const auto &[info, want] : rows) {
		int id = 0, shift = 0;
		uint64_t mask = 0;
		int rc = VEXOSSDBundleSmartInfoGet(info, 2, &id, &mask, &shift);
		EXPECT_EQ(rc == 0 ? std::to_string(id) + " " + std::to_string(mask) + " " + std::to_string(shift) : "", want)
			<< info;
	}
}

// One NVMe disk in the sysroot: the maker's model or another.
class NvmeSmart : public SimDisk {
protected:
	void SetUp() override
	{
		SimDisk::SetUp();
		ASSERT_TRUE(kBackend);
		DiskLayout(root).nvme("nvme0n1", "0000:00:1d.0");
		root.diskDir("nvme0n1");
		root.write("/sys/block/nvme0n1/queue/rotational", "0\n");
		actions(std::string("<disk model=\"") + kMakerModel + "\" vendor=\"Vexology\" action=\"0x0\"/>\n");
		database(std::string("{\"") + kMakerModel + R"(": {
			"nvme_smart_vendor_specific": {"0xca": {"length": "512", "attributes": {
				"Later Bad Block Count": {"offset": "8", "size": "4", "hide_name": "0"},
				"NAND Bytes Written": {"offset": "24", "size": "8", "hide_name": "1"}}}},
			"is_bundle": "yes", "bad_block_cnt_thr": "100", "bundle_smart_attrs": "2:162:0xffffffff:0"}})");
	}
	void drive(const std::string &model, const std::string &nvme)
	{
		node("nvme0n1", R"({"protocol":"nvme","model":")" + model + R"(","serial":"VXN2310A01273","nvme":{"vid":6535,)" +
					nvme + "}}");
		clearCommands("nvme0n1");
	}
	void database(const std::string &text) { root.write("/var/lib/drive_attribute/drive_attribute.db", text); }
};

TEST_F(NvmeSmart, MakerDriveListsHealthThenVendorAttributes)
{
	drive(kMakerModel, R"("available_spare":10,"available_spare_threshold":10,"percentage_used":100,
		"vendor_log":{"later_bad_block_count":77,"nand_bytes_written":5000000000})");
	SmartInfoEntry *raw = nullptr;
	ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/nvme0n1", &raw), 0);
	vexo::smart::UniqueList l(raw);
	std::string names;
	for (const SmartInfoEntry *e = raw; e; e = e->next)
		names += std::string(e->name) + ",";
	EXPECT_EQ(names, "Critical Warning,Temperature,Available Spare,Available Spare Threshold,Percentage Used,"
			 "Data Units Read,Data Units Written,Host Read Commands,Host Write Commands,Controller Busy Time,"
			 "Power Cycles,Power On Hours,Unsafe Shutdowns,Media and Data Integrity Errors,"
			 "Error Information Log Entries,Warning Composite Temperature Time,"
			 "Critical Composite Temperature Time,Later Bad Block Count,Vendor Specific,");
	auto m = byName(raw);
	struct Want {
		const char *name, *id, *value;
		uint32_t status;
	} want[] = {{"Critical Warning", "1", "0x00", 0},	  {"Temperature", "2", "35 Celsius", 0},
		    {"Available Spare", "3", "10%", 2},		  {"Percentage Used", "5", "100%", 2},
		    {"Data Units Written", "7", "3145728", 0},	  {"Later Bad Block Count", "162", "77", 0},
		    {"Vendor Specific", "166", "5000000000", 0}};
	for (const Want &w : want) {
		ASSERT_TRUE(m.count(w.name)) << w.name;
		EXPECT_STREQ(m[w.name]->id, w.id) << w.name;
		EXPECT_STREQ(m[w.name]->value, w.value) << w.name;
		EXPECT_EQ(m[w.name]->status, w.status) << w.name;
	}
	// The health log, Identify Controller for the maker and for the model,
	// then the vendor page: 512 bytes each, for all namespaces.
	const std::string log = "NVME_ADMIN opcode=0x02 flags=0x00 nsid=0xffffffff cdw2=0x00000000 cdw3=0x00000000 cdw10=";
	const std::string rest = " cdw11=0x00000000 cdw12=0x00000000 cdw13=0x00000000 cdw14=0x00000000 cdw15=0x00000000 "
				 "data_len=512 metadata_len=0 addr=set -> ok";
	const std::string identify = "NVME_ADMIN opcode=0x06 flags=0x00 nsid=0x00000000*cdw10=0x00000001*data_len=4096";
	expectSent("nvme0n1", {log + "0x007f0002" + rest, identify, identify, log + "0x007f00ca" + rest});
	EXPECT_EQ(VEXODiskSSDBadBlockOverThreshold("/dev/nvme0n1"), 0); // 77 < 100
}

TEST_F(NvmeSmart, DatabaseTroublesCostOnlyTheVendorEntries)
{
	struct Row {
		const char *model, *db;
		int vendorEntries, caRead;
		const char *line;
	} rows[] = {
		// Not the maker's drive: the database is neither read nor its page asked.
		{"WD Red SN700 500GB", "damaged", 0, 0, nullptr},
		{kMakerModel, "damaged", 0, 0, "Failed to load attribute DB of disk /dev/nvme0n1"},
		{kMakerModel, "{}", 0, 0, "Failed to load attribute DB of disk /dev/nvme0n1"},
		{kMakerModel, R"({"VEXO NM410 400GB": {"is_bundle": "no"}})", 0, 0,
		 "Failed to get nvme_smart_vendor_specific in /var/lib/drive_attribute/drive_attribute.db"},
	};
	for (const Row &r : rows) {
		database(r.db);
		drive(r.model, "\"percentage_used\":3");
		LogCapture log;
		SmartInfoEntry *raw = nullptr;
		ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/nvme0n1", &raw), 0) << r.model << r.db;
		vexo::smart::UniqueList l(raw);
		int n = 0;
		for (const SmartInfoEntry *e = raw; e; e = e->next)
			n += std::atoi(e->id) >= 160;
		EXPECT_EQ(n, r.vendorEntries) << r.db;
		EXPECT_EQ(countOf("nvme0n1", "cdw10=0x007f00ca"), r.caRead) << r.db;
		if (r.line)
			EXPECT_TRUE(log.has(LOG_ERR, r.line)) << log.dump();
		else
			EXPECT_FALSE(log.has(LOG_ERR, "attribute DB")) << log.dump();
	}
}

TEST_F(NvmeSmart, DebugOverridesComeBeforeTheVerdicts)
{
	drive("WD Red SN700 500GB", "\"critical_warning\":0");
	unsigned life = 99, crit = 99;
	EXPECT_EQ(VEXONVMeStatusDebugGet("/dev/nvme0n1", &life, &crit), 0); // gate closed
	product({{"support_disk_status_debug", "yes"}});
	root.write("/tmp/.disk_status_debug", "[VXN2310A01273]\ncrit=\"c\"\nperc_used=\"50\"\nlife=\"7\"\n");
	EXPECT_EQ(VEXONVMeStatusDebugGet("/dev/nvme0n1", &life, &crit), 3);
	EXPECT_EQ(life, 7u);
	EXPECT_EQ(crit, 0xcu);
	SmartInfoEntry *raw = nullptr;
	ASSERT_EQ(VEXODiskAtaSmartInfoParse("/dev/nvme0n1", &raw), 0);
	vexo::smart::UniqueList l(raw);
	auto m = byName(raw);
	EXPECT_STREQ(m["Critical Warning"]->value, "0xc");
	EXPECT_EQ(m["Critical Warning"]->status, 2u);
	EXPECT_STREQ(m["Percentage Used"]->value, "50%");
	EXPECT_EQ(m["Percentage Used"]->status, 0u);
	EXPECT_STREQ(m["Available Spare"]->raw, "7%");
	EXPECT_EQ(m["Available Spare"]->status, 2u); // 7 % against the drive's 10 %
}

TEST_F(NvmeSmart, CriticalWarningCache)
{
	drive(kMakerModel, "\"critical_warning\":5");
	const std::string file = "/run/vexostorage/disks/nvme0n1/critical_warning";
	int v = -1;
	EXPECT_EQ(SmartNVMeCritialWarnCacheGet("/dev/nvme0n1", &v), -1); // nothing cached yet
	EXPECT_EQ(SmartNVMeCritialWarnCacheUpdateIfSupport("nvme0n1"), 0);
	EXPECT_EQ(root.read(file), "5");
	EXPECT_EQ(SmartNVMeCritialWarnCacheGet("/dev/nvme0n1", &v), 0);
	EXPECT_EQ(v, 5);
	// An ATA disk: nothing asked, nothing written.
	EXPECT_EQ(SmartNVMeCritialWarnCacheUpdateIfSupport("sda"), 0);
	EXPECT_FALSE(root.exists("/run/vexostorage/disks/sda/critical_warning"));
	EXPECT_EQ(SmartNVMeCritialWarnCacheUpdateIfSupport("../sda"), -1);
	// A drive that does not answer leaves the cached value alone.
	root.write("/dev/nvme0n1", R"({"protocol":"nvme","faults":{"nvme_get_log_page":{"abort":true}}})");
	EXPECT_EQ(SmartNVMeCritialWarnCacheUpdateIfSupport("nvme0n1"), -1);
	EXPECT_EQ(root.read(file), "5");
}

TEST_F(NvmeSmart, RemainingLifeByMakerAndSerial)
{
	drive(kMakerModel, R"("available_spare":37,"percentage_used":120)");
	struct Row {
		int vexology;
		const char *serial;
		int rc, life, from;
	} rows[] = {{1, "", 0, 37, VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE},
		    {0, nullptr, 0, 0, VEXO_NVME_LIFE_FROM_PERCENTAGE_USED},
		    {1, "VXN2310A01273", 0, 37, VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE},
		    {1, "VXN2310A0127", -1, -5, -5}};
	for (const Row &r : rows) {
		int life = -5, from = -5;
		EXPECT_EQ(VEXONVMeRemainingLifeGet("/dev/nvme0n1", r.vexology, r.serial, &life, &from), r.rc);
		EXPECT_EQ(life, r.life);
		EXPECT_EQ(from, r.from);
	}
	drive(kMakerModel, R"("percentage_used":4)");
	VEXODiskUpdateStrValueCacheFile("nvme0n1", "serial", "VXN2310A01273\n");
	DiskHealthAttr a{};
	ASSERT_EQ(VEXODiskCurHealthSmartAttrGet("/dev/nvme0n1", &a), 0);
	EXPECT_EQ(a.remainLife, 100);
	EXPECT_STREQ(a.lifeAttribute, "Available Spare");
}

TEST_F(NvmeSmart, BundleSettingsAndBadBlocks)
{
	struct Row {
		const char *entry;
		int blocks, conf, over;
	} rows[] = {
		{R"("is_bundle": "yes", "bad_block_cnt_thr": "100", "bundle_smart_attrs": "2:162:0xffffffff:0")", 100, 0, 1},
		{R"("is_bundle": "yes", "bad_block_cnt_thr": "100", "bundle_smart_attrs": "2:162:0xffffffff:0")", 99, 0, 0},
		{R"("is_bundle": "yes", "bad_block_cnt_thr": "0x2", "bundle_smart_attrs": "2:162:0xff00:8")", 0x2ff, 0, 1},
		{R"("is_bundle": "no", "bad_block_cnt_thr": "1")", 500, 2, 0},
		{R"("is_bundle": "yes", "order": [1])", 500, -1, 0},
		{R"("is_bundle": "yes", "bad_block_cnt_thr": "1", "bundle_smart_attrs": "3:164:1:0")", 500, 0, 0},
	};
	for (const Row &r : rows) {
		database(std::string("{\"") + kMakerModel + R"(": {"nvme_smart_vendor_specific": {"0xca": {"length": "64",
			"attributes": {"Later Bad Block Count": {"offset": "8", "size": "4"}}}}, )" + r.entry + "}}");
		drive(kMakerModel, "\"vendor_log\":{\"later_bad_block_count\":" + std::to_string(r.blocks) + "}");
		DriveBundleModelConf c{};
		EXPECT_EQ(VEXODriveBundleModelConfGet("/dev/nvme0n1", &c), r.conf) << r.entry;
		EXPECT_EQ(VEXODiskSSDBadBlockOverThreshold("/dev/nvme0n1"), r.over) << r.entry;
	}
	database("{}");
	DriveBundleModelConf c{};
	EXPECT_EQ(VEXODriveBundleModelConfGet("/dev/nvme0n1", &c), 1);
}

} // namespace
