// Firmware from the box's local firmware server: the offer per model, the
// archive fetched and its binary stored, and the refusals before a transfer.
#include <gtest/gtest.h>
#include <syslog.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/misc.h>

#include "misc/serve.h"
#include "support/vexotest.h"

using namespace vexo::test;

namespace {

TEST(FirmwareDownload, OfferArchiveAndBinary)
{
	Sysroot root;
	root.conf("/etc.defaults/vexoinfo.conf", {{"unique", "vexo_x86_vx1222"}, {"group_id", "g1"}, {"serial", "S1"}, {"upnpmodelname", "VX1222"}});
	root.conf("/etc.defaults/VERSION", {{"base", "72806"}, {"nano", "3"}});
	ASSERT_EQ(runProgram({buildDir() + "/bin/vexo-archive", "keys", root.root()}), 0);
	root.mkdirs("/srv/vexosim/fw");
	root.write("/tmp/kit/firmware/M1-V2.bin", std::string(3000, 'f'));
	root.write("/tmp/kit/firmware/M1-V2.bin.FW_INFO", "md5sum=\"x\"\nmodel=\"M 1\"\n");
	ASSERT_EQ(runProgram({buildDir() + "/bin/vexo-archive", "pack", "7", root.host("/run/vexosim/archive-keys/7.key"),
			      root.host("/srv/vexosim/fw/m1.sa"), root.host("/tmp/kit")}),
		  0);
	const std::string size = std::to_string(root.read("/srv/vexosim/fw/m1.sa").size());
	Serve serve(root);
	ASSERT_GT(serve.port(), 0);
	serve.put("/ssd/v1/getUpdate/M 1.json",
		  "[{\"size_in_bytes\":" + size + ",\"file\":\"" + std::string(VEXO_FIRMWARE_SERVER_DEFAULT) + "/fw/m1.sa\"}]");
	serve.put("/ssd/v1/getUpdate/M2.json", "[]");
	serve.put("/ssd/v1/getUpdate/M3.json", "[{\"size_in_bytes\":999999999999999,\"file\":\"x\"}]");
	serve.put("/ssd/v1/getUpdate/M4.json", "{\"file\":1}");
	serve.put("/ssd/v1/getUpdate/index.json", "[]");
	LogCapture log;
	EXPECT_EQ(VEXOOnlineFWCheck(), 0);
	root.mkdirs("/var/lib/drive-bundle/fw-tmp");
	ASSERT_EQ(VEXODriveBundleFWSADownload("M 1", 1, 0, "/var/lib/drive-bundle/fw-tmp/m1.sa"), 0) << log.dump();
	ASSERT_EQ(VEXODriveBundleFWSAExtract("/var/lib/drive-bundle/fw-tmp/m1.sa"), 0) << log.dump();
	EXPECT_EQ(root.read("/var/lib/drive-bundle/firmware/M1-V2.bin"), std::string(3000, 'f'));
	EXPECT_TRUE(root.exists("/var/lib/drive-bundle/firmware/M1-V2.bin.FW_INFO"));
	// Refused before any transfer: nothing lands at the target.
	const struct {
		const char *model;
		int error;
	} refused[] = {{"M2", 0x9A00}, {"M3", 0x2900}, {"M4", 0x9A00}, {"M5", 0x9A00}};
	for (const auto &r : refused) {
		SCOPED_TRACE(r.model);
		EXPECT_EQ(VEXODriveBundleFWSADownload(r.model, 1, 0, "/var/lib/drive-bundle/fw-tmp/x.sa"), -1);
		EXPECT_ERR(r.error);
		EXPECT_FALSE(root.exists("/var/lib/drive-bundle/fw-tmp/x.sa"));
	}
	EXPECT_TRUE(log.has(LOG_ERR, "Failed to get firmware info, due to array is empty"));
	// The same archive from an offline kit, for the model of a present disk only.
	root.remove("/var/lib/drive-bundle/firmware/M1-V2.bin");
	root.write("/tmp/okit/m1.sa", root.read("/srv/vexosim/fw/m1.sa"));
	root.write("/tmp/okit/firmware/firmware.json", R"([{"model":"M 9","file":"none.sa"},{"model":"M 1","file":"m1.sa"}])");
	EXPECT_EQ(VEXODriveBundleUpdateFirmwaresFromOfflineKit("/tmp/okit"), -1); // no disk at all
	root.diskDir("sda");
	root.write("/run/vexostorage/disks/sda/model", "M 1");
	ASSERT_EQ(VEXODriveBundleUpdateFirmwaresFromOfflineKit("/tmp/okit"), 0) << log.dump();
	EXPECT_EQ(root.read("/var/lib/drive-bundle/firmware/M1-V2.bin"), std::string(3000, 'f'));
	// A tampered archive stores nothing.
	std::string sa = root.read("/var/lib/drive-bundle/fw-tmp/m1.sa");
	sa[sa.size() / 2] ^= 1;
	root.write("/var/lib/drive-bundle/fw-tmp/bad.sa", sa);
	root.remove("/var/lib/drive-bundle/firmware/M1-V2.bin");
	EXPECT_EQ(VEXODriveBundleFWSAExtract("/var/lib/drive-bundle/fw-tmp/bad.sa"), -1);
	EXPECT_FALSE(root.exists("/var/lib/drive-bundle/firmware/M1-V2.bin"));
	// Both servers: answering, even with a 404 (1), a cut transfer (-1), or
	// out of reach, which is only "offline" (0, core error 0x1100).
	const struct {
		const char *ctl;
		int want;
	} online[] = {{"", 1}, {"/ssd/ 404\n", 1}, {"/getSSDsInfo/v7 cut\n", -1}, {"* cut\n", -1}};
	for (const auto &o : online) {
		SCOPED_TRACE(o.ctl);
		serve.misbehave(o.ctl);
		EXPECT_EQ(VEXOOnlineDBAndFWCheck(), o.want) << log.dump();
	}
	serve.misbehave("");
	root.conf("/etc.defaults/vexoinfo.conf", {{"unique", "vexo_x86_vx1222"}, {"group_id", "g1"}, {"serial", "S1"},
						  {"upnpmodelname", "VX1222"},
						  {"firmware_server_url_base", "https://fw.vexo.invalid"},
						  {"vexodisk_server_url", "https://db.vexo.invalid/getSSDsInfo/v7"}});
	EXPECT_EQ(VEXOOnlineDBAndFWCheck(), 0) << log.dump();
	EXPECT_ERR(0x1100);
}

} // namespace
