// What the library reads about a disk without asking the drive: model,
// vendor and rotation from kernel attributes and the cache, size and block
// size through the block control operations (on real loop devices), SCSI
// generic nodes, the drive health tool and its retries, and past serials
// from the plug events of the disk log database.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexoplatform/logdb.h>

#include "disk/disk_model_whole.h"
#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::runProgram;
using vexo::test::Sysroot;
using vexo::test::textOf;

namespace {

class Identity : public ::testing::Test {
protected:
	void SetUp() override { VLIBCErrClear(); }

	// A SATA disk whose kernel attributes say vendor and model (as the
	// kernel writes them: padded, newline-terminated).
	void disk(const std::string &name, int port, const std::string &vendor, const std::string &model)
	{
		disks.sata(name, port);
		root.write("/sys/block/" + name + "/device/vendor", vendor + "\n");
		root.write("/sys/block/" + name + "/device/model", model + "\n");
	}
	std::string vendorOf(const std::string &model)
	{
		root.write("/sys/block/sda/device/model", model + "\n");
		return vexo::test::textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64);
	}
	// An eraser at work: its pid (a live one, ours) in the disk's marker.
	void markSecureErasing(const std::string &name)
	{
		root.write(VEXO_SECURE_ERASE_DIR "/" + name + VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
	}

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

TEST_F(Identity, EveryVendorRowAndItsOrder)
{
	disk("sda", 1, "ATA     ", "placeholder");
	struct {
		const char *model;
		const char *vendor;
	} cases[] = {
		{"ST4000VN000-1H4168", "Seagate"}, {"HITACHI HDS722020ALA330", "Hitachi"}, {"MK1059GSM", "Toshiba"},
		{"SAMSUNG WD-1", "Western Digital"}, {"TS256GSSD370S", "Transcend"},
		// Case does not matter; unanchored rows match inside the text.
		{"st1000dm003", "Seagate"}, {"OLD FIREBALL 3", "Quantum"},
		// The first matching row wins over a later one.
		{"STWD100", "Seagate"}, {"TOSHIBA WD5000", "Toshiba"},
		// Every pattern wants at least one character after its stem.
		{"ST", "Unknown"}, {"WD", "Unknown"}, {"HDS723030", "Unknown"}, {"Samsung SSD 870", "Unknown"},
	};
	for (const auto &c : cases)
		EXPECT_EQ(vendorOf(c.model), c.vendor) << c.model;
}

TEST_F(Identity, VendorLookupsFromManyThreads)
{
	// Each thread's disk has a model of another table row; answers must not mix.
	const std::pair<const char *, const char *> rows[] = {
		{"ST4000VN000", "Seagate"}, {"HTS541010A9E680", "Hitachi"}, {"MK1059GSM", "Toshiba"},
		{"SAMSUNG WD-1", "Western Digital"}, {"TS256GSSD370S", "Transcend"}, {"HDS723030", "Unknown"},
	};
	constexpr int kThreads = 6;
	for (int t = 0; t < kThreads; ++t)
		disk(std::string("sd") + char('a' + t), t + 1, "ATA", rows[t].first);
	// In a child, so that a crash fails this test alone.
	int rc = vexo::test::inChild([&] {
		std::atomic<int> wrong{0};
		std::vector<std::thread> threads;
		for (int t = 0; t < kThreads; ++t)
			threads.emplace_back([&, t] {
				const std::string dev = std::string("/dev/sd") + char('a' + t);
				for (int i = 0; i < 200; ++i) {
					char v[64] = {};
					if (VEXOLnxDiskGetVendor(dev.c_str(), v, sizeof(v)) != 0 || std::strcmp(v, rows[t].second) != 0)
						++wrong;
				}
			});
		for (auto &th : threads)
			th.join();
		return wrong.load() == 0 ? 0 : 1;
	});
	EXPECT_EQ(rc, 0);
}

TEST_F(Identity, KernelVendorUnlessAta)
{
	// Not "ATA": the kernel's text stands as read, whatever the model says.
	disk("sda", 1, "HGST", "ST4000VN000");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "HGST");
	// The kernel's padding stays: the text is not the table's.
	root.write("/sys/block/sda/device/vendor", "SEAGATE \n");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "SEAGATE ");
	root.write("/sys/block/sda/device/vendor", "HGST\n");
	// A partition asks its disk; a short name works as well.
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "sda3", 64), "HGST");
	// A short buffer gets nothing rather than a cut name.
	disk("sdc", 3, "ATA     ", "WDC WD40EFRX");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sdc", 8), "rc=-1");
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
}

TEST_F(Identity, VendorFailures)
{
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, nullptr, 64), "rc=-1");
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 0), "rc=-1");
	EXPECT_ERR(0x0D00);
	disks.sata("sda", 1);
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "rc=-1");
	EXPECT_ERR(0x0700);
	root.write("/sys/block/sda/device/vendor", "");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "rc=-1");
	EXPECT_ERR(0x0A00);
	// An ATA disk whose model cannot be read is still answered.
	LogCapture log;
	root.write("/sys/block/sda/device/vendor", "ATA\n");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/sda", 64), "Unknown");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sda/device/model")) << log.dump();
}

TEST_F(Identity, VendorCache)
{
	disk("sda", 1, "ATA", "ST8000VN004");
	root.diskDir("sda");
	// A miss asks the disk; so does an empty value (a writer caught mid-way).
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "/dev/sda", 64), "Seagate");
	root.write("/run/vexostorage/disks/sda/vendor", "");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "sda", 64), "Seagate");
	// A value in the cache wins over the disk.
	root.write("/run/vexostorage/disks/sda/vendor", "Cached Vendor");
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "/dev/sda", 64), "Cached Vendor");

	LogCapture log;
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, "/dev/sdq", 64), "rc=-1");
	EXPECT_EQ(log.count(LOG_DEBUG, "Fail to get disk vendor, err=[0x1792]"), 1) << log.dump();
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendorCache, nullptr, 64), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid input parameters"));
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, ModelFromSysfs)
{
	disk("sda", 1, "ATA", "  WDC WD40EFRX-68N32N0   ");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda"), "WDC WD40EFRX-68N32N0");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda", 20), "rc=-1"); // 21 bytes needed

	LogCapture log;
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, nullptr), "rc=-1");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda", 0), "rc=-1");
	EXPECT_EQ(log.count(LOG_ERR, "Bad parameters."), 2);
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sdb"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sdb/device/model"));
	EXPECT_ERR(0x0900);
	root.write("/sys/block/sda/device/model", "");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/sda"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed get disk model"));
}

TEST_F(Identity, NvmeModelAndVendor)
{
	disks.nvme("nvme0n1", "0000:00:01.2");
	root.diskDir("nvme0n1");
	root.write("/run/vexostorage/disks/nvme0n1/model", "VEXO SNV3410-800G");
	// The node is a plain file here, so the controller does not answer.
	LogCapture log;
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get nvme disk model: /dev/nvme0n1")) << log.dump();
	// Vendor: the failure is "Unknown", and still a success.
	EXPECT_EQ(textOf(VEXOLnxDiskGetVendor, "/dev/nvme0n1", 64), "Unknown");
	// Under secure erase the model comes from the cache.
	markSecureErasing("nvme0n1");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "VEXO SNV3410-800G");
	root.remove("/run/vexostorage/disks/nvme0n1/model");
	EXPECT_EQ(textOf(VEXOLnxDiskGetModel, "/dev/nvme0n1"), "rc=-1");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get disk model from cache: /dev/nvme0n1"));
}

TEST_F(Identity, Rotation)
{
	disks.sata("sda", 1);
	disks.sata("sdb", 2);
	root.write("/sys/block/sda/queue/rotational", "0\n");
	root.write("/sys/block/sdb/queue/rotational", "1\n");
	EXPECT_EQ(VEXODiskIsSSD("/dev/sda"), 1);
	EXPECT_EQ(VEXODiskIsSSD("/dev/sdb"), 0);

	LogCapture log;
	EXPECT_EQ(VEXODiskIsSSD("sda"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't parse Node name from sda"));
	EXPECT_EQ(VEXODiskIsSSD(nullptr), -1);
	EXPECT_EQ(VEXODiskIsSSD("/dev/sdc"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't open file /sys/block/sdc/queue/rotational"));
	root.write("/sys/block/sdb/queue/rotational", "");
	EXPECT_EQ(VEXODiskIsSSD("/dev/sdb"), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Can't read file /sys/block/sdb/queue/rotational"));
}

TEST_F(Identity, ScsiGenericNode)
{
	disks.sata("sda", 1);
	root.mkdirs("/sys/block/sda/device/scsi_generic/sg3");
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, "/dev/sda", 16), "/dev/sg3");
	// Does not fit: nothing written, rather than another node's name.
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, "/dev/sda", 8), "rc=-1");
	EXPECT_ERR(0x0D00);
	LogCapture log;
	disks.sata("sdb", 2);
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, "/dev/sdb", 16), "rc=-1");
	EXPECT_ERR(0x2A00);
	EXPECT_TRUE(log.has(LOG_ERR, "glob found nothing: /sys/block/sdb/device/scsi_generic/sg*"));
	EXPECT_EQ(textOf(VEXODiskScsiGenericGet, nullptr, 16), "rc=-1");
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, HealthToolAnswers)
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

TEST_F(Identity, HealthToolRetriesWhileBusy)
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

TEST_F(Identity, HealthToolNotAsked)
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

TEST_F(Identity, HealthAnswerFromCache)
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
class PlugEvent : public Identity {
protected:
	void SetUp() override
	{
		Identity::SetUp();
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

// Size and logical block size on loop devices whose node stands in the
// test sysroot.
class LoopSize : public ::testing::Test {
protected:
	void TearDown() override
	{
		for (const auto &loop : loops_)
			runProgram({"losetup", "-d", loop});
	}

	// Attaches a sparse file of `bytes` to a free loop device and makes the
	// sysroot's /dev/<name> a block node with the loop's device number.
	// Empty when loop devices cannot be had here (the reason in *why).
	bool attach(const std::string &name, unsigned long long bytes, int sectorSize, std::string *why)
	{
		const std::string image = root.host("/images/" + name + ".img");
		root.mkdirs("/images");
		int fd = ::open(image.c_str(), O_CREAT | O_RDWR, 0600);
		if (fd < 0 || ::ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
			*why = std::string("cannot make a sparse image: ") + std::strerror(errno);
			if (fd >= 0)
				::close(fd);
			return false;
		}
		::close(fd);
		std::vector<std::string> argv{"losetup", "--find", "--show"};
		if (sectorSize)
			argv.insert(argv.end(), {"--sector-size", std::to_string(sectorSize)});
		argv.push_back(image);
		std::string out;
		if (runProgram(argv, &out) != 0 || out.rfind("/dev/loop", 0) != 0) {
			*why = "losetup --find --show failed (no loop devices or no privilege)";
			return false;
		}
		std::string loop = out.substr(0, out.find('\n'));
		loops_.push_back(loop);
		struct stat st;
		if (::stat(loop.c_str(), &st) != 0 || !S_ISBLK(st.st_mode)) {
			*why = "the loop device node " + loop + " is not visible";
			return false;
		}
		root.mkdirs("/dev");
		if (::mknod(root.host("/dev/" + name).c_str(), S_IFBLK | 0600, st.st_rdev) != 0) {
			*why = std::string("mknod failed: ") + std::strerror(errno);
			return false;
		}
		return true;
	}

	Sysroot root;

private:
	std::vector<std::string> loops_;
};

#define ATTACH_OR_SKIP(name, bytes, sector)                    \
	do {                                                   \
		std::string why;                               \
		if (!attach((name), (bytes), (sector), &why))  \
			GTEST_SKIP() << why;                   \
	} while (0)

TEST_F(LoopSize, SizesAndBlockSizes)
{
	ATTACH_OR_SKIP("sda", 1ULL << 20, 0);
	ATTACH_OR_SKIP("sdb", (5ULL << 30) + 4096, 0);
	ATTACH_OR_SKIP("sdc", 64ULL << 20, 4096);

	// Short and /dev names alike; sdb is beyond 32 bits of bytes.
	const struct {
		const char *path;
		unsigned long long bytes;
		int block;
	} cases[] = {{"/dev/sda", 1ULL << 20, 512}, {"sdb", (5ULL << 30) + 4096, 512}, {"/dev/sdc", 64ULL << 20, 4096}};
	for (const auto &c : cases) {
		unsigned long long bytes = 0;
		int block = 0;
		ASSERT_EQ(DiskSizeGet(c.path, &bytes), 0) << c.path;
		EXPECT_EQ(bytes, c.bytes) << c.path;
		ASSERT_EQ(DiskLogicalBlockSizeGet(c.path, &block), 0) << c.path;
		EXPECT_EQ(block, c.block) << c.path;
	}
}

TEST_F(LoopSize, Failures)
{
	LogCapture log;
	unsigned long long bytes = 7;
	int block = 7;
	EXPECT_EQ(DiskSizeGet("/dev/sdz", &bytes), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /dev/sdz, errno=No such file or directory")) << log.dump();
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdz", &block), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to open /dev/sdz"), 2);

	// A node that is no block device refuses the control operation.
	root.write("/dev/sdy", "");
	EXPECT_EQ(DiskSizeGet("/dev/sdy", &bytes), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to ioctl /dev/sdy, errno=Inappropriate ioctl for device")) << log.dump();
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdy", &block), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(bytes, 7u);
	EXPECT_EQ(block, 7);

	EXPECT_EQ(DiskSizeGet(nullptr, &bytes), -1);
	EXPECT_EQ(DiskSizeGet("/dev/sda", nullptr), -1);
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sda", nullptr), -1);
	EXPECT_EQ(log.count(LOG_ERR, "bad paramters"), 3);
	EXPECT_ERR(0x0D00);
}

} // namespace

namespace {

// VPD page 0x89 holding `model` in its IDENTIFY data, cut to `bytes`.
std::string ataVpd(const std::string &model, size_t bytes = 572)
{
	std::string page(572, '\0');
	page[1] = static_cast<char>(0x89);
	std::string m = model + std::string(40 - model.size(), ' ');
	for (size_t i = 0; i < 40; i += 2) {
		page[60 + 54 + i] = m[i + 1];
		page[60 + 54 + i + 1] = m[i];
	}
	return page.substr(0, bytes);
}

TEST(WholeModel, FromWhatTheSystemKnows)
{
	using vexo::disk::ModelSource;
	const std::string cut = "WDC WD40EFPX-68C", whole = "WDC WD40EFPX-68C6CN0";
	struct Case {
		const char *what;
		std::string cache, vpd;
		ModelSource from;
		std::string model;
	} cases[] = {
		{"nothing beyond the record", "", "", ModelSource::Record, cut},
		{"the kernel's IDENTIFY data", "", ataVpd(whole), ModelSource::AtaVpd, whole},
		{"a page cut short", "", ataVpd(whole, 100), ModelSource::Record, cut},
		{"another disk's page", "", ataVpd("ST4000VN006-3CW104"), ModelSource::Record, cut},
		{"the cache first", whole + "\n", ataVpd("WDC WD40EFPX-68C0000"), ModelSource::Cache, whole},
		{"a stale cache", "ST4000VN006-3CW104\n", ataVpd(whole), ModelSource::AtaVpd, whole},
	};
	for (const Case &c : cases) {
		Sysroot root;
		root.mkdirs("/sys/block/sda/device");
		if (!c.cache.empty())
			root.write("/run/vexostorage/disks/sda/model", c.cache);
		if (!c.vpd.empty())
			root.write("/sys/block/sda/device/vpd_pg89", c.vpd);
		std::string model;
		EXPECT_EQ(vexo::disk::wholeModel("sda", cut.c_str(), model), c.from) << c.what;
		EXPECT_EQ(model, c.model) << c.what;
	}
}

} // namespace
