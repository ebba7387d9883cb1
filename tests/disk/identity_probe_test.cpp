// SCSI generic nodes, the drive health tool and its retries, and past
// serials from the plug events of the disk log database.
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexoplatform/logdb.h>

#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

namespace {

class Probe : public ::testing::Test {
protected:
	void SetUp() override { VLIBCErrClear(); }

	// An ATA disk as the health tool serves it: rotating, Seagate by its model.
	void seagate(const std::string &name, int port, const std::string &sg)
	{
		disks.sata(name, port);
		root.write("/sys/block/" + name + "/device/vendor", "ATA     \n");
		root.write("/sys/block/" + name + "/device/model", "ST8000VN004-2M2101\n");
		root.write("/sys/block/" + name + "/queue/rotational", "1\n");
		if (!sg.empty())
			root.mkdirs("/sys/block/" + name + "/device/scsi_generic/" + sg);
	}
	// The tool stand-in: logs its arguments, one line a run, and exits with
	// the next status of the list (the last one repeats).
	void tool(const std::string &statuses)
	{
		root.write("/tmp/dhm_statuses", statuses + "\n");
		const std::string dir = root.host("/tmp");
		root.write("/usr/vexo/sbin/dhm_tool",
			   "#!/bin/sh\n"
			   "echo \"$*\" >> " + dir + "/dhm_runs\n"
			   "set -- $(cat " + dir + "/dhm_statuses)\n"
			   "s=$1\n"
			   "[ $# -gt 1 ] && shift && echo \"$*\" > " + dir + "/dhm_statuses\n"
			   "exit $s\n",
			   0755);
	}
	std::vector<std::string> runs() const
	{
		std::vector<std::string> out;
		if (!root.exists("/tmp/dhm_runs"))
			return out;
		std::string all = root.read("/tmp/dhm_runs");
		for (std::size_t b = 0, e; (e = all.find('\n', b)) != std::string::npos; b = e + 1)
			out.push_back(all.substr(b, e - b));
		return out;
	}

	Sysroot root;
	DiskLayout disks{root};
};

TEST_F(Probe, ScsiGenericNode)
{
	disks.sata("sda", 1);
	root.mkdirs("/sys/block/sda/device/scsi_generic/sg3");
	char sg[16] = {};
	ASSERT_EQ(VEXODiskScsiGenericGet("/dev/sda", sg, sizeof(sg)), 0);
	EXPECT_STREQ(sg, "/dev/sg3");
	// Does not fit: nothing written, rather than another node's name.
	char small[8] = "keep";
	EXPECT_EQ(VEXODiskScsiGenericGet("/dev/sda", small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "keep");

	LogCapture log;
	disks.sata("sdb", 2);
	EXPECT_EQ(VEXODiskScsiGenericGet("/dev/sdb", sg, sizeof(sg)), -1);
	EXPECT_ERR(0x2A00);
	EXPECT_TRUE(log.has(LOG_ERR, "glob found nothing: /sys/block/sdb/device/scsi_generic/sg*"));
	EXPECT_EQ(VEXODiskScsiGenericGet(nullptr, sg, sizeof(sg)), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(Probe, HealthToolAnswers)
{
	seagate("sda", 1, "sg0");
	tool("50");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sda"), 1);
	ASSERT_EQ(runs(), std::vector<std::string>{"-d /dev/sg0 -w"});

	root.remove("/tmp/dhm_runs");
	tool("51");
	EXPECT_EQ(VEXODiskIsIronWolf("sda"), 2);
	EXPECT_EQ(runs().size(), 1u);

	// Any other status is a plain no, asked once.
	for (const char *status : {"0", "52"}) {
		root.remove("/tmp/dhm_runs");
		tool(status);
		EXPECT_EQ(VEXODiskIsIronWolf("/dev/sda"), 0) << status;
		EXPECT_EQ(runs().size(), 1u) << status;
	}
}

TEST_F(Probe, HealthToolRetriesWhileBusy)
{
	EXPECT_EQ(VEXODiskDHMNeedRetry(VEXO_DHM_EXIT_BUSY), 1);
	EXPECT_EQ(VEXODiskDHMNeedRetry(50), 0);
	seagate("sda", 1, "sg0");
	tool("16 16 51");
	auto start = std::chrono::steady_clock::now();
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sda"), 2);
	EXPECT_EQ(runs().size(), 3u);
	// The busy tool is given time between the tries.
	EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));

	// Three tries at most: the answer behind a fourth is never asked for.
	root.remove("/tmp/dhm_runs");
	tool("16 16 16 50");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sda"), 0);
	EXPECT_EQ(runs().size(), 3u);
}

TEST_F(Probe, HealthToolNotAsked)
{
	tool("50");
	// An SSD.
	seagate("sda", 1, "sg0");
	root.write("/sys/block/sda/queue/rotational", "0\n");
	EXPECT_EQ(VEXODiskIhmSkipCheck("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sda"), 0);
	// Another vendor, by the table or by the kernel.
	seagate("sdb", 2, "sg1");
	root.write("/sys/block/sdb/device/model", "WDC WD80EFZX\n");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sdb"), 0);
	// Unknown rotation.
	seagate("sdd", 4, "sg3");
	root.remove("/sys/block/sdd/queue/rotational");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sdd"), 0);
	EXPECT_EQ(VEXODiskIhmSkipCheck(nullptr), 1);
	EXPECT_TRUE(runs().empty());

	// The kernel's own vendor text, padded, is served too.
	seagate("sde", 5, "sg4");
	root.write("/sys/block/sde/device/vendor", "SEAGATE \n");
	EXPECT_EQ(VEXODiskIhmSkipCheck("/dev/sde"), 0);

	// No generic node: 0x2A00 and no run.
	seagate("sdf", 6, "");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sdf"), 0);
	EXPECT_ERR(0x2A00);
	EXPECT_TRUE(runs().empty());

	// No tool at all.
	root.remove("/usr/vexo/sbin/dhm_tool");
	EXPECT_EQ(VEXODiskIsIronWolf("/dev/sde"), 0);
}

TEST_F(Probe, HealthAnswerFromCache)
{
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/ironwolf", "2");
	EXPECT_EQ(VEXODiskIsIronWolfCache("/dev/sda"), 2);
	LogCapture log;
	root.write("/run/vexostorage/disks/sda/ironwolf", "");
	EXPECT_EQ(VEXODiskIsIronWolfCache("/dev/sda"), -1);
	EXPECT_EQ(VEXODiskIsIronWolfCache("/dev/sdb"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "get return form /run/vexostorage/disks/sdb/ironwolf fail"));
	EXPECT_EQ(VEXODiskIsIronWolfCache(nullptr), -1);
}

// The disk log database with rows (id order = insertion order).
class PlugEvent : public ::testing::Test {
protected:
	void SetUp() override
	{
		VLIBCErrClear();
		root.mkdirs("/var/log/vexolog");
		root.mkdirs("/var/run");
	}
	void rows(const std::vector<std::tuple<long long, const char *, int, const char *>> &events)
	{
		VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE | VEXODB_CREATE);
		ASSERT_NE(db, nullptr);
		ASSERT_EQ(VEXODBExecute(db, VEXODB_DISK_LOG_SCHEMA), 0) << VEXODBErrorGet(db);
		for (const auto &[time, msg, slot, serial] : events) {
			char sql[512];
			std::snprintf(sql, sizeof(sql),
				      "INSERT INTO logs (time, level, msg, slot, serial, model, path, info) "
				      "VALUES (%lld, 'info', '%s', %d, '%s', 'ST8000VN004', '/dev/sdc', '')",
				      time, msg, slot, serial);
			ASSERT_EQ(VEXODBExecute(db, sql), 0) << VEXODBErrorGet(db);
		}
		VEXODBClose(db);
	}
	std::string serialAt(unsigned slot, unsigned long long before)
	{
		char s[64] = "none";
		if (VEXODiskSerialGetByPlugEvent(slot, before, s, sizeof(s)) != 0)
			return "-1";
		return s;
	}
	void bootupDone() { root.write("/var/run/.vexo_disk_bootup_init_done", ""); }

	Sysroot root;
};

TEST_F(PlugEvent, NewestArrivalBeforeTheTime)
{
	rows({{1000, "bootup_in", 3, "S3A"}, {1000, "bootup_in", 4, "S4A"}, {2000, "plugout", 3, "S3A"},
	      {2100, "plugin", 3, "S3B"}, {2200, "life_below_thre_with_value", 3, "S3X"},
	      {3000, "plugout", 3, "S3B"}, {3100, "plugin", 3, "S3C"}, {3200, "plugin", 4, "S4B"},
	      {4000, "bootup_out", 4, "S4B"}});
	bootupDone();
	EXPECT_EQ(serialAt(3, 1001), "S3A");
	EXPECT_EQ(serialAt(3, 2101), "S3B");
	// Other kinds of row do not count.
	EXPECT_EQ(serialAt(3, 2999), "S3B");
	EXPECT_EQ(serialAt(3, 5000), "S3C");
	// Only rows strictly before the time.
	EXPECT_EQ(serialAt(3, 2100), "-1"); // newest is the departure at 2000
	EXPECT_ERR(0x2A00);
	// Bays do not mix.
	EXPECT_EQ(serialAt(4, 3201), "S4B");
	EXPECT_EQ(serialAt(4, 3200), "S4A");
	EXPECT_EQ(serialAt(5, 9999), "-1");
	// After a departure with the log complete, the bay was empty.
	EXPECT_EQ(serialAt(4, 4001), "-1");
	EXPECT_EQ(serialAt(3, 3001), "-1");
}

TEST_F(PlugEvent, DeparturesPassedOverUntilBootupDone)
{
	rows({{1000, "bootup_in", 3, "S3A"}, {2000, "plugout", 3, "S3A"}, {2100, "plugin", 3, "S3B"},
	      {3000, "plugout", 3, "S3B"}, {3500, "bootup_out", 3, "S3B"}});
	EXPECT_EQ(serialAt(3, 2050), "S3A");
	EXPECT_EQ(serialAt(3, 4000), "S3B");
	bootupDone();
	EXPECT_EQ(serialAt(3, 2050), "-1");
	EXPECT_EQ(serialAt(3, 4000), "-1");
	EXPECT_EQ(serialAt(3, 2101), "S3B");
}

TEST_F(PlugEvent, Failures)
{
	LogCapture log;
	char s[8] = "keep";
	// No database: nothing is created by asking.
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0700);
	EXPECT_FALSE(root.exists(VEXODB_DISK_LOG_PATH));

	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, nullptr, 8), -1);
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, 0), -1);
	EXPECT_ERR(0x0D00);

	// A serial longer than the buffer is refused, not cut.
	rows({{10, "plugin", 1, "ZL2K4T7C0000"}});
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(s, "keep");
	// The largest bay number and time go through the query text whole.
	rows({{10, "plugin", 0, "SLOT0"}});
	char big[32] = {};
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(0, 18446744073709551615ULL, big, sizeof(big)), 0);
	EXPECT_STREQ(big, "SLOT0");
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(4294967295u, 18446744073709551615ULL, big, sizeof(big)), -1);
	EXPECT_ERR(0x2A00);

	// A file that is not a database, and a database without the table.
	root.write(VEXODB_DISK_LOG_PATH, "not a database at all, just text that is long enough to look like a header");
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0300);
	root.remove(VEXODB_DISK_LOG_PATH);
	VEXODB *db = VEXODBConnect(VEXODB_DISK_LOG_PATH, VEXODB_WRITE | VEXODB_CREATE);
	ASSERT_NE(db, nullptr);
	ASSERT_EQ(VEXODBExecute(db, "CREATE TABLE other (x INTEGER)"), 0);
	VEXODBClose(db);
	EXPECT_EQ(VEXODiskSerialGetByPlugEvent(1, 100, s, sizeof(s)), -1);
	EXPECT_ERR(0x0300);
	EXPECT_TRUE(log.has(LOG_ERR, "no such table: logs")) << log.dump();
}

} // namespace
