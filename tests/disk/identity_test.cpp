// Model, vendor and rotation of disks from kernel attributes and the cache.
#include <atomic>
#include <cstring>
#include <string>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>

#include "disk/disk_model_whole.h"
#include "support/disk_layout.h"

using vexo::test::DiskLayout;
using vexo::test::LogCapture;
using vexo::test::Sysroot;

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
		char v[64] = "untouched";
		EXPECT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, sizeof(v)), 0) << model;
		return v;
	}
	// An eraser at work: its pid (a live one, ours) in the disk's marker.
	void markSecureErasing(const std::string &name)
	{
		root.write(VEXO_SECURE_ERASE_DIR "/" + name + VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
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
	char v[64] = {};
	ASSERT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "HGST");
	// The kernel's padding stays: the text is not the table's.
	root.write("/sys/block/sda/device/vendor", "SEAGATE \n");
	ASSERT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "SEAGATE ");
	root.write("/sys/block/sda/device/vendor", "HGST\n");
	// A partition asks its disk; a short name works as well.
	ASSERT_EQ(VEXOLnxDiskGetVendor("sda3", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "HGST");

	// A short buffer gets nothing rather than a cut name.
	disk("sdc", 3, "ATA     ", "WDC WD40EFRX");
	char small[8] = "keep";
	ASSERT_EQ(VEXOLnxDiskGetVendor("/dev/sdc", small, sizeof(small)), -1);
	EXPECT_STREQ(small, "keep");
	EXPECT_ERR(VEXO_ERR_BAD_PARAM);
}

TEST_F(Identity, VendorFailures)
{
	char v[64] = "untouched";
	EXPECT_EQ(VEXOLnxDiskGetVendor(nullptr, v, sizeof(v)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, 0), -1);
	EXPECT_ERR(0x0D00);

	disks.sata("sda", 1);
	EXPECT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, sizeof(v)), -1);
	EXPECT_ERR(0x0700);
	root.write("/sys/block/sda/device/vendor", "");
	EXPECT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, sizeof(v)), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_STREQ(v, "untouched");

	// An ATA disk whose model cannot be read is still answered.
	LogCapture log;
	root.write("/sys/block/sda/device/vendor", "ATA\n");
	ASSERT_EQ(VEXOLnxDiskGetVendor("/dev/sda", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "Unknown");
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sda/device/model")) << log.dump();
}

TEST_F(Identity, VendorCache)
{
	disk("sda", 1, "ATA", "ST8000VN004");
	root.diskDir("sda");
	char v[64] = {};
	// A miss asks the disk.
	ASSERT_EQ(VEXOLnxDiskGetVendorCache("/dev/sda", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "Seagate");
	// An empty value is a writer caught mid-way: ask the disk.
	root.write("/run/vexostorage/disks/sda/vendor", "");
	ASSERT_EQ(VEXOLnxDiskGetVendorCache("sda", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "Seagate");
	// A value in the cache wins over the disk.
	root.write("/run/vexostorage/disks/sda/vendor", "Cached Vendor");
	ASSERT_EQ(VEXOLnxDiskGetVendorCache("/dev/sda", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "Cached Vendor");

	LogCapture log;
	EXPECT_EQ(VEXOLnxDiskGetVendorCache("/dev/sdq", v, sizeof(v)), -1);
	EXPECT_EQ(log.count(LOG_DEBUG, "Fail to get disk vendor, err=[0x1792]"), 1) << log.dump();
	EXPECT_EQ(VEXOLnxDiskGetVendorCache(nullptr, v, sizeof(v)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Invalid input parameters"));
	EXPECT_ERR(0x0D00);
}

TEST_F(Identity, ModelFromSysfs)
{
	disk("sda", 1, "ATA", "  WDC WD40EFRX-68N32N0   ");
	char m[128] = {};
	ASSERT_EQ(VEXOLnxDiskGetModel("/dev/sda", m, sizeof(m)), 0);
	EXPECT_STREQ(m, "WDC WD40EFRX-68N32N0");
	char small[20] = "keep";
	ASSERT_EQ(VEXOLnxDiskGetModel("/dev/sda", small, sizeof(small)), -1); // 21 bytes needed
	EXPECT_STREQ(small, "keep");

	LogCapture log;
	char keep[16] = "untouched";
	EXPECT_EQ(VEXOLnxDiskGetModel(nullptr, keep, sizeof(keep)), -1);
	EXPECT_EQ(VEXOLnxDiskGetModel("/dev/sda", keep, 0), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Bad parameters."), 2);
	EXPECT_EQ(VEXOLnxDiskGetModel("/dev/sdb", keep, sizeof(keep)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /sys/block/sdb/device/model"));
	EXPECT_ERR(0x0900);
	root.write("/sys/block/sda/device/model", "");
	EXPECT_EQ(VEXOLnxDiskGetModel("/dev/sda", keep, sizeof(keep)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed get disk model"));
	EXPECT_STREQ(keep, "untouched");
}

TEST_F(Identity, NvmeModelAndVendor)
{
	disks.nvme("nvme0n1", "0000:00:01.2");
	root.diskDir("nvme0n1");
	root.write("/run/vexostorage/disks/nvme0n1/model", "VEXO SNV3410-800G");
	char m[128] = "untouched";

	// The node is a plain file here, so the controller does not answer.
	LogCapture log;
	EXPECT_EQ(VEXOLnxDiskGetModel("/dev/nvme0n1", m, sizeof(m)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get nvme disk model: /dev/nvme0n1")) << log.dump();
	EXPECT_STREQ(m, "untouched");
	// Vendor: the failure is "Unknown", and still a success.
	char v[64] = {};
	ASSERT_EQ(VEXOLnxDiskGetVendor("/dev/nvme0n1", v, sizeof(v)), 0);
	EXPECT_STREQ(v, "Unknown");

	// Under secure erase the model comes from the cache.
	markSecureErasing("nvme0n1");
	ASSERT_EQ(VEXOLnxDiskGetModel("/dev/nvme0n1", m, sizeof(m)), 0);
	EXPECT_STREQ(m, "VEXO SNV3410-800G");
	root.remove("/run/vexostorage/disks/nvme0n1/model");
	EXPECT_EQ(VEXOLnxDiskGetModel("/dev/nvme0n1", m, sizeof(m)), -1);
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
