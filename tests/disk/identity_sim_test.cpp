// Identity probes that ask the drive, against the drive emulator: form
// factor, size and block size, true serial, the disks carrying a serial,
// and the record of the first disk.
#include <cstring>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>

#include "smartctl/drive_sim.h"
#include "support/disk_layout.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

class IdentitySim : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}});
	}
	// An ATA node with extra JSON members.
	void ata(const std::string &name, const std::string &extra)
	{
		node(name, R"({"protocol":"ata","model":"ST8000VN004-2M2101","serial":"ZA1B2C3D","firmware":"SC60")" +
				   (extra.empty() ? "" : "," + extra) + "}");
	}
	std::string formFactor(const std::string &name)
	{
		char text[64] = "untouched";
		if (VEXODiskFormFactorSizeGet(("/dev/" + name).c_str(), text, sizeof(text)) != 0)
			return "-1";
		return text;
	}
};

TEST_F(IdentitySim, FormFactorWord)
{
	ASSERT_TRUE(kBackend);
	const char *texts[] = {"", "5.25", "3.5", "2.5", "1.8", "below 1.8"};
	for (int v = 1; v <= 5; ++v) {
		ata("sda", "\"form_factor\":" + std::to_string(v));
		EXPECT_EQ(formFactor("sda"), texts[v]) << v;
		expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok"});
	}
	// Outside the table, and the whole word: the bracket stays as it is.
	ata("sda", "\"form_factor\":7");
	EXPECT_EQ(formFactor("sda"), "unknown (0x0007] inch");
	ata("sda", "\"identify_words\":{\"168\":258}");
	EXPECT_EQ(formFactor("sda"), "unknown (0x0102] inch");
	expectSent("sda", {"HDIO_GET_IDENTITY -> ok", "HDIO_DRIVE_CMD args=ec000001 -> ok", "HDIO_GET_IDENTITY -> ok",
			   "HDIO_DRIVE_CMD args=ec000001 -> ok"});

	// NVMe disks have no such word and are not asked.
	node("nvme0n1", R"({"protocol":"nvme"})");
	EXPECT_EQ(formFactor("nvme0n1"), "unknown");
	expectSent("nvme0n1", {});

	// A short buffer gets nothing rather than a cut text.
	ata("sda", "\"form_factor\":7");
	char small[8] = "keep";
	EXPECT_EQ(VEXODiskFormFactorSizeGet("/dev/sda", small, sizeof(small)), -1);
	EXPECT_STREQ(small, "keep");
}

TEST_F(IdentitySim, FormFactorFailures)
{
	LogCapture log;
	ata("sda", R"("faults":{"identify":{"abort":true},"packet_identify":{"abort":true}})");
	EXPECT_EQ(formFactor("sda"), "-1");
	EXPECT_EQ(log.count(LOG_ERR, "Failed to read smart identify"), 1) << log.dump();
	EXPECT_EQ(formFactor("sdq"), "-1");
	EXPECT_EQ(log.count(LOG_ERR, "Failed to read smart identify"), 2);

	// A SCSI drive has no IDENTIFY page: -1, silently.
	log.clear();
	root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}, {"vvos", "yes"}});
	node("sdb", kScsiNode);
	EXPECT_EQ(formFactor("sdb"), "-1");
	EXPECT_ERR(0xD900);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to read smart identify"), 0) << log.dump();

	char text[16];
	EXPECT_EQ(VEXODiskFormFactorSizeGet(nullptr, text, sizeof(text)), -1);
	EXPECT_EQ(VEXODiskFormFactorSizeGet("/dev/sda", text, 0), -1);
	EXPECT_EQ(log.count(LOG_ERR, "Invalid inputed parameter"), 2);
}

TEST_F(IdentitySim, SizeFromTheDrive)
{
	ata("sda", R"("size_bytes":8001563222016,"logical_block_size":512)");
	ata("sdb", R"("size_bytes":16000900661248,"logical_block_size":4096)");
	unsigned long long bytes = 0;
	int block = 0;
	ASSERT_EQ(DiskSizeGet("/dev/sda", &bytes), 0);
	EXPECT_EQ(bytes, 8001563222016ULL);
	ASSERT_EQ(DiskLogicalBlockSizeGet("sda", &block), 0);
	EXPECT_EQ(block, 512);
	ASSERT_EQ(DiskLogicalBlockSizeGet("/dev/sdb", &block), 0);
	EXPECT_EQ(block, 4096);

	LogCapture log;
	ata("sdc", R"("faults":{"blk":{"errno":"EIO"}})");
	bytes = 5;
	EXPECT_EQ(DiskSizeGet("/dev/sdc", &bytes), -1);
	EXPECT_EQ(DiskLogicalBlockSizeGet("/dev/sdc", &block), -1);
	EXPECT_ERR(0x6C00);
	EXPECT_EQ(log.count(LOG_ERR, "Failed to ioctl /dev/sdc, errno=Input/output error"), 2) << log.dump();
	EXPECT_EQ(bytes, 5u);
	EXPECT_EQ(DiskSizeGet("/dev/sdx", &bytes), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to open /dev/sdx, errno="));
}

TEST_F(IdentitySim, TrueSerial)
{
	ata("sda", "");
	char serial[32] = {};
	ASSERT_EQ(DiskSerialGet("sda", serial, sizeof(serial)), 0);
	EXPECT_STREQ(serial, "ZA1B2C3D");
	// Does not fit: refused whole.
	char small[8] = "keep";
	EXPECT_EQ(DiskSerialGet("/dev/sda", small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "keep");

	LogCapture log;
	EXPECT_EQ(DiskSerialGet("/dev/sdq", serial, sizeof(serial)), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "SmartFirmAndSerialRead failed on [/dev/sdq] [0x")) << log.dump();
	EXPECT_EQ(DiskSerialGet(nullptr, serial, sizeof(serial)), -1);
	EXPECT_ERR(0x0D00);
}

TEST_F(IdentitySim, PathsBySerial)
{
	DiskLayout disks(root);
	for (const char *name : {"sda", "sdb", "sdc"}) {
		disks.sata(name, name[2] - 'a' + 1);
		root.write(std::string("/sys/block/") + name + "/device/model", "ST8000VN004-2M2101\n");
	}
	// sda and sdc carry the same serial (a cloned or badly made drive).
	ata("sda", "");
	node("sdb", R"({"protocol":"ata","serial":"OTHER0001"})");
	ata("sdc", "");

	PVLIBSZLIST paths = VLIBCSzListAlloc(4);
	ASSERT_EQ(VEXODiskDevPathGetBySerialNumber("ZA1B2C3D", &paths), 0);
	ASSERT_EQ(paths->nItem, 2);
	EXPECT_STREQ(VLIBCSzListGet(paths, 0), "/dev/sda");
	EXPECT_STREQ(VLIBCSzListGet(paths, 1), "/dev/sdc");

	// A disk that cannot tell its serial is passed over, with a line.
	LogCapture log;
	VLIBCSzListClear(paths);
	node("sda", R"({"protocol":"ata","faults":{"identify":{"abort":true},"packet_identify":{"abort":true}}})");
	ASSERT_EQ(VEXODiskDevPathGetBySerialNumber("ZA1B2C3D", &paths), 0);
	ASSERT_EQ(paths->nItem, 1);
	EXPECT_STREQ(VLIBCSzListGet(paths, 0), "/dev/sdc");
	EXPECT_TRUE(log.has(LOG_ERR, "Fail to get drive serial number from [/dev/sda]")) << log.dump();

	VLIBCSzListClear(paths);
	ASSERT_EQ(VEXODiskDevPathGetBySerialNumber("NOSUCH", &paths), 0);
	EXPECT_EQ(paths->nItem, 0);
	EXPECT_EQ(VEXODiskDevPathGetBySerialNumber(nullptr, &paths), -1);
	EXPECT_EQ(VEXODiskDevPathGetBySerialNumber("ZA1B2C3D", nullptr), -1);
	EXPECT_ERR(0x0D00);
	VLIBCSzListFree(paths);
}

TEST_F(IdentitySim, NvmeModelFromTheControllerOrTheCache)
{
	node("nvme0n1", R"({"protocol":"nvme","model":"VEXO SNV3410-800G","serial":"N0001"})");
	char model[128] = {};
	ASSERT_EQ(VEXOLnxDiskGetModel("/dev/nvme0n1", model, sizeof(model)), 0);
	EXPECT_STREQ(model, "VEXO SNV3410-800G");
	char vendor[64] = {};
	ASSERT_EQ(VEXOLnxDiskGetVendor("nvme0n1", vendor, sizeof(vendor)), 0);
	EXPECT_STREQ(vendor, "VEXO");
	const std::string identifyController = "NVME_ADMIN opcode=0x06*cdw10=0x00000001*data_len=4096*-> ok";
	expectSent("nvme0n1", {identifyController, identifyController}); // model, then vendor

	// Under secure erase the drive is not asked at all.
	root.diskDir("nvme0n1");
	root.write("/run/vexostorage/disks/nvme0n1/model", "CACHED MODEL");
	root.write(VEXO_SECURE_ERASE_DIR "/nvme0n1" VEXO_SECURE_ERASE_SUFFIX, std::to_string(::getpid()) + "\n");
	ASSERT_EQ(VEXOLnxDiskGetModel("/dev/nvme0n1", model, sizeof(model)), 0);
	EXPECT_STREQ(model, "CACHED MODEL");
	expectSent("nvme0n1", {});
}

class FirstDisk : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		disks.sata("sda", 1);
		root.write("/sys/block/sda/device/model", "ST8000VN004-2M2101  \n");
		root.write("/sys/block/sda/device/state", "running\n");
		node("sda", R"({"protocol":"ata","size_bytes":8001563222016,"temperature":41})");
		root.write("/proc/partitions", "major minor  #blocks  name\n\n   8        0 7814026584 sda\n"
					       "   8        1    2490240 sda1\n");
	}
	void product(bool raid)
	{
		root.conf("/etc.defaults/vexoinfo.conf",
			  {{"internalportcfg", "0xff"}, {"usbportcfg", "0xff0000"}, {"support_raid", raid ? "yes" : "no"}});
	}
	DiskLayout disks{root};
};

TEST_F(FirstDisk, Record)
{
	product(true);
	root.write("/proc/mounts", "/dev/md0 / ext4 rw,relatime 0 0\nproc /proc proc rw 0 0\n");
	DiskInfo info;
	std::memset(&info, 0x5A, sizeof(info));
	ASSERT_EQ(VEXOLnxDiskGetInfo(&info), 0);
	EXPECT_STREQ(info.name, "sda");
	EXPECT_STREQ(info.path, "/dev/sda");
	EXPECT_STREQ(info.model, "ST8000VN004-2M2101");
	EXPECT_EQ(info.sizeBytes, (8001563222016ULL >> 20) << 20);
	EXPECT_EQ(info.temperature, 41);
	EXPECT_EQ(info.id.index, 0);
	EXPECT_EQ(info.secureErasing, 0);
}

TEST_F(FirstDisk, RunningFromMemoryLeavesTheDriveAlone)
{
	product(true);
	root.write("/proc/mounts", "none / aufs rw,relatime,si=1 0 0\n");
	DiskInfo info{};
	ASSERT_EQ(VEXOLnxDiskGetInfo(&info), 0);
	EXPECT_EQ(info.temperature, 0);
	EXPECT_EQ(info.sizeBytes, (8001563222016ULL >> 20) << 20);
	// Size comes from the block layer; no drive command was sent.
	expectSent("sda", {"BLKGETSIZE64 -> ok"});

	// Without RAID the mount table is not consulted at all.
	product(false);
	root.remove("/proc/mounts");
	ASSERT_EQ(VEXOLnxDiskGetInfo(&info), 0);
	EXPECT_EQ(info.temperature, 41);
}

TEST_F(FirstDisk, Failures)
{
	LogCapture log;
	EXPECT_EQ(VEXOLnxDiskGetInfo(nullptr), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters."));

	DiskInfo info{};
	std::strcpy(info.model, "untouched");
	product(true);
	EXPECT_EQ(VEXOLnxDiskGetInfo(&info), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to setmntent().")) << log.dump();
	EXPECT_STREQ(info.model, "untouched");

	root.write("/proc/mounts", "/dev/md0 / ext4 rw 0 0\n");
	root.remove("/proc/partitions");
	EXPECT_EQ(VEXOLnxDiskGetInfo(&info), -1);
	EXPECT_STREQ(info.model, "untouched");

	root.remove("/sys/block/sda/device/model");
	EXPECT_EQ(VEXOLnxDiskGetInfo(&info), -1);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get disk model."));
	EXPECT_STREQ(info.model, "untouched");
}

} // namespace
