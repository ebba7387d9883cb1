// Where a disk stands as text: DiskGetLocation, VEXODiskLocateGetWithoutIndex,
// the PCIe-attached unit branch of VEXODiskLocateHostGet and the updater's
// holder text, which must not ask the unit driver.
#include <vexoplatform/ebox_info.h>

#include "external/port_fixture.h"

using vexo::test::LogCapture;

namespace {

// sda, sdb internal; sdc the external port with a unit (host 4, XU05 as unit 3)
// whose disks sdca, sdcb sit on a controller behind the PCIe port 0000:00:1c.0.
class Location : public vexo::test::PortFixture {
protected:
	void SetUp() override
	{
		PortFixture::SetUp();
		disks.sata("sda", 1);
		disks.sata("sdca", 5, "0000:00:1c.0/0000:03:00.0");
		disks.sata("sdcb", 6, "0000:00:1c.0/0000:03:00.0");
		disks.nvme("nvme2n1", "0000:00:1c.0/0000:04:00.0");
		disks.unit(4, "sdc", {"/dev/sdca", "/dev/sdcb"});
		platform(R"("pcie_eunits": [{"pci": "0000:00:1c.0", "unique": "XU20"}])");
		pcieUnits(false);
	}
	void pcieUnits(bool yes)
	{
		maps("10", "4", "3", "", {{"upnpmodelname", "VQ300"}, {"support_nvme_eunit", yes ? "yes" : "no"}});
	}
	void platform(const std::string &extra)
	{
		disks.platform(R"({"model": "VQ300", "ebox": true,
		  "nvme_slots": [{"pci": "0000:04:00.0", "slot": 0, "location": 3, "type": "internal"}])" +
			       (extra.empty() ? "" : ", " + extra) + "}");
	}
	std::string where(const DiskId &id)
	{
		char text[64] = "untouched";
		return DiskGetLocation(&id, text, sizeof(text)) == 0 ? text : "fail:" + std::string(text);
	}
	std::string withoutIndex(const char *path)
	{
		char text[64] = "";
		return VEXODiskLocateGetWithoutIndex(path, text, sizeof(text)) == 0 ? text : "fail";
	}
	std::string host(const char *path, int flag = 0)
	{
		char text[64] = "";
		return VEXODiskLocateHostGet(path, text, sizeof(text), flag) == 0 ? text : "fail";
	}
	std::string inUpdater(const char *path)
	{
		char text[64] = "untouched";
		return VEXODiskLocateHostGetInUpdater(path, text, sizeof(text)) == 0 ? text : "fail:" + std::string(text);
	}
};

TEST_F(Location, PlacesOfEveryContainer)
{
	EXPECT_EQ(where({3, DISK_CONTAINER_INTERNAL, 0, 0, -1}), "VQ300 Disk 3");
	EXPECT_EQ(where({2, DISK_CONTAINER_EBOX, 3, 1, -1}), "XU05-3 Disk 2");
	EXPECT_EQ(where({1, DISK_CONTAINER_EBOX, 9, 0, -1}), "Enclosure-9 Disk 1"); // no unit 9
	EXPECT_EQ(where({12, DISK_CONTAINER_CACHE, 0, 0, -1}), "VQ300 Cache device 2");
	EXPECT_EQ(where({2, DISK_CONTAINER_CACHE, 0, 0, 1}), "VQ300 Cache device 1-2");
	EXPECT_EQ(where({2, DISK_CONTAINER_SYS, 0, 0, -1}), "VQ300 System device 2");
	// The unit's own text comes from its port when units hang off PCIe.
	pcieUnits(true);
	EXPECT_EQ(where({2, DISK_CONTAINER_EBOX, 3, 1, -1}), "XU20-3 Disk 2");
}

TEST_F(Location, RefusalsLeaveAClearError)
{
	LogCapture log;
	char text[64] = "untouched";
	DiskId good{3, DISK_CONTAINER_INTERNAL, 0, 0, -1};
	EXPECT_EQ(DiskGetLocation(nullptr, text, sizeof(text)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(DiskGetLocation(&good, text, 0), -1);
	EXPECT_STREQ(text, "untouched");
	EXPECT_TRUE(log.has(LOG_ERR, "Bad parameters"));
	EXPECT_EQ(where({0, DISK_CONTAINER_INTERNAL, 0, 0, -1}), "fail:untouched");
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(where({1, DISK_CONTAINER_EBOX, 0, 0, -1}), "fail:untouched"); // a unit disk needs its unit
	EXPECT_EQ(where({1, DISK_CONTAINER_TMPFS, 0, 0, -1}), "fail:untouched");
	EXPECT_ERR(0x6100);
	// A cache id whose slot gives no text.
	EXPECT_EQ(where({1, DISK_CONTAINER_CACHE, 0, 0, -2}), "fail:untouched");
	EXPECT_ERR(0x0D00);
	// Too small: nothing cut is handed out.
	char small[8] = "xxxxxxx";
	EXPECT_EQ(DiskGetLocation(&good, small, sizeof(small)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(small, "");
	// No product name.
	maps("10", "4", "3", "");
	EXPECT_EQ(where(good), "fail:untouched");
	EXPECT_ERR(0x2A00);
}

TEST_F(Location, HolderWithTheUnitNumber)
{
	EXPECT_EQ(withoutIndex("/dev/sda"), "VQ300");
	EXPECT_EQ(withoutIndex("/dev/sdcb3"), "XU05-3");
	EXPECT_EQ(withoutIndex("hda"), "fail");
	EXPECT_EQ(withoutIndex(nullptr), "fail");
	EXPECT_ERR(0x0D00);
	char tiny[4];
	EXPECT_EQ(VEXODiskLocateGetWithoutIndex("/dev/sdca", tiny, sizeof(tiny)), -1);
	EXPECT_ERR(0x0D00);

	// Units over PCIe: the text comes from the unit's port.
	pcieUnits(true);
	EXPECT_EQ(host("/dev/sdcb"), "XU20");
	EXPECT_EQ(withoutIndex("/dev/sdcb"), "XU20-3");
	EXPECT_EQ(host("/dev/sda"), "VQ300");
	// A port the description does not know: the fallbacks.
	platform("");
	EXPECT_EQ(host("/dev/sdcb"), "Enclosure-3");
	EXPECT_EQ(withoutIndex("/dev/sdcb"), "Enclosure-3");
}

TEST_F(Location, PcieUnitPlacesItsDisks)
{
	char unique[16] = "";
	// ATA ports 5 and 6 of the unit's controller are its bays 5 and 6.
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdca", unique, sizeof(unique)), 4);
	EXPECT_STREQ(unique, "XU20");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("sdcb2", unique, sizeof(unique)), 5);
	// An NVMe disk of the unit: its location below the unit's port.
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/nvme2n1", unique, sizeof(unique)), 2);

	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath(nullptr, unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/../sda", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0D00);
	char tiny[4] = "abc";
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdca", tiny, sizeof(tiny)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_STREQ(tiny, "");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sda", unique, sizeof(unique)), -1); // not in a unit
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdzz", unique, sizeof(unique)), -1); // no such disk
	EXPECT_ERR(0x0700);

	LogCapture log;
	// A disk under the port with no bay to read, and an entry without its text.
	disks.nvme("nvme3n1", "0000:00:1c.0/0000:05:00.0");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/nvme3n1", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to place nvme3n1 in the expansion unit at 0000:00:1c.0"));
	root.remove("/sys/devices/pci0000:00/0000:00:1c.0/0000:03:00.0/ata5/ata_port/ata5/port_no");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdca", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	platform(R"("pcie_eunits": [{"pci": "0000:00:1c.0"}])");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdcb", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	EXPECT_TRUE(log.has(LOG_ERR, "No unique text for the expansion unit at 0000:00:1c.0"));
	platform(R"("pcie_eunits": {"pci": "0000:00:1c.0"})");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdcb", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0A00);
	root.remove("/etc.defaults/vexoplatform.json");
	EXPECT_EQ(VEXOPcieEunitUniqueGetByDevPath("/dev/sdcb", unique, sizeof(unique)), -1);
	EXPECT_ERR(0x0700);
}

TEST_F(Location, UpdaterNeverAsksTheUnit)
{
	// Outside the updater the unit names itself; inside it only the parsed
	// unit number is known, partitions or not, and so with the host flag.
	EXPECT_EQ(host("/dev/sdcb"), "XU05");
	EXPECT_EQ(inUpdater("/dev/sdcb"), "Enclosure-3");
	EXPECT_EQ(inUpdater("sdca2"), "Enclosure-3");
	EXPECT_EQ(host("/dev/sdca", 7), "Enclosure-3");
	EXPECT_EQ(inUpdater("sda5"), "VQ300");
	// Without the product name only unit disks have an answer.
	maps("10", "4", "3", "");
	EXPECT_EQ(inUpdater("/dev/sda"), "fail:untouched");
	EXPECT_ERR(0x2A00);
	EXPECT_EQ(inUpdater("/dev/sdcb"), "Enclosure-3");

	char text[64] = "untouched";
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater(nullptr, text, sizeof(text)), -1);
	EXPECT_ERR(0x0D00);
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sda", text, 0), -1);
	EXPECT_STREQ(text, "untouched");
	EXPECT_EQ(inUpdater("hda"), "fail:untouched"); // no port type
	// "Enclosure-3" needs 12 bytes: one less fails and hands out nothing cut.
	char small[11] = "xxxxxxxxxx";
	EXPECT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sdcb", small, sizeof(small)), -1);
	EXPECT_STREQ(small, "");
	char exact[12];
	ASSERT_EQ(VEXODiskLocateHostGetInUpdater("/dev/sdcb", exact, sizeof(exact)), 0);
	EXPECT_STREQ(exact, "Enclosure-3");
}

} // namespace
