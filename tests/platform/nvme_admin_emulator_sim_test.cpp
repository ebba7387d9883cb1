// The emulated NVMe controller seen through the raw passthrough ioctl: the
// pages it builds from the node and the statuses it gives to malformed
// commands, as a controller would.
#include <cerrno>
#include <cstring>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <syslog.h>
#include <sys/ioctl.h>
#include <vector>

#include "platform/nvme/nvme_admin_command.h"
#include "smartctl/drive_sim.h"

using namespace vexo::test;

namespace {

const bool kBackend = installDriveEmulator();

uint64_t le(const uint8_t *p, int bytes)
{
	uint64_t v = 0;
	for (int i = bytes - 1; i >= 0; --i)
		v = v << 8 | p[i];
	return v;
}

class NvmeController : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		node("nvme0n1", R"({"protocol":"nvme","model":"VEXO NM410 400GB","serial":"VXN0001","firmware":"VN02",
 "size_bytes":400088457216,"logical_block_size":512})");
	}
	nvme_admin_cmd cmd(uint8_t opcode, uint32_t nsid, uint32_t cdw10, std::vector<uint8_t> &buf)
	{
		nvme_admin_cmd c{};
		c.opcode = opcode;
		c.nsid = nsid;
		c.cdw10 = cdw10;
		c.addr = buf.empty() ? 0 : reinterpret_cast<uintptr_t>(buf.data());
		c.data_len = static_cast<uint32_t>(buf.size());
		return c;
	}
	int run(nvme_admin_cmd &c) { return vexo::dev::ioctl(open("nvme0n1"), NVME_IOCTL_ADMIN_CMD, &c); }
	// Get Log Page of `bytes` bytes (NUMD to match), for all namespaces.
	int logPage(unsigned lid, std::vector<uint8_t> &buf, uint32_t offset = 0)
	{
		uint32_t numd = static_cast<uint32_t>(buf.size() / 4 - 1);
		nvme_admin_cmd c = cmd(0x02, 0xFFFFFFFF, lid | (numd & 0xFFFF) << 16, buf);
		c.cdw11 = numd >> 16;
		c.cdw12 = offset;
		return run(c);
	}
	int identify(unsigned cns, uint32_t nsid, std::vector<uint8_t> &buf)
	{
		nvme_admin_cmd c = cmd(0x06, nsid, cns, buf);
		return run(c);
	}
};

TEST_F(NvmeController, IdentifyControllerAndNamespace)
{
	ASSERT_TRUE(kBackend);
	node("nvme0n1", R"({"protocol":"nvme","model":"VEXO NM410 400GB","serial":"VXN0001","firmware":"VN02",
 "size_bytes":400088457216,"logical_block_size":4096,"nvme":{"vid":7089,"ssvid":4660,"extended_test_minutes":45,
 "firmware_slots":{"active":2,"revisions":["VN01","old","VN03"]}}})");
	std::vector<uint8_t> id(4096, 0xEE);
	ASSERT_EQ(identify(1, 0, id), 0);
	EXPECT_EQ(le(&id[0], 2), 0x1BB1u);
	EXPECT_EQ(le(&id[2], 2), 0x1234u);
	EXPECT_EQ(std::string(id.begin() + 4, id.begin() + 24), "VXN0001             ");
	EXPECT_EQ(std::string(id.begin() + 24, id.begin() + 64), "VEXO NM410 400GB" + std::string(24, ' '));
	EXPECT_EQ(std::string(id.begin() + 64, id.begin() + 72), "VN02    ");
	EXPECT_EQ(le(&id[256], 2) & 0x10, 0x10u); // device self-test supported
	EXPECT_EQ(id[260], 3 << 1);               // three firmware slots
	EXPECT_EQ(le(&id[316], 2), 45u);
	EXPECT_EQ(le(&id[516], 4), 1u);

	std::vector<uint8_t> ns(4096, 0xEE);
	ASSERT_EQ(identify(0, 1, ns), 0);
	EXPECT_EQ(le(&ns[0], 8), 400088457216u / 4096);
	EXPECT_EQ(le(&ns[8], 8), 400088457216u / 4096);
	unsigned format = ns[26] & 0xF;
	ASSERT_LE(format, ns[25]);
	EXPECT_EQ(1u << ns[128 + 4 * format + 2], 4096u); // LBADS of the format in use

	node("nvme0n1", R"({"protocol":"nvme","size_bytes":1000204886016})");
	ASSERT_EQ(identify(0, 1, ns), 0);
	EXPECT_EQ(le(&ns[0], 8), 1000204886016u / 512);
	format = ns[26] & 0xF;
	EXPECT_EQ(1u << ns[128 + 4 * format + 2], 512u);

	// The firmware slot log agrees: slot 2 active, holding the running firmware.
	std::vector<uint8_t> fw(512, 0xEE);
	node("nvme0n1", R"({"protocol":"nvme","firmware":"VN02",
 "nvme":{"firmware_slots":{"active":2,"next":3,"revisions":["VN01","old","VN03"]}}})");
	ASSERT_EQ(logPage(0x03, fw), 0);
	EXPECT_EQ(fw[0], 0x32);
	EXPECT_EQ(std::string(fw.begin() + 8, fw.begin() + 16), "VN01    ");
	EXPECT_EQ(std::string(fw.begin() + 16, fw.begin() + 24), "VN02    ");
	EXPECT_EQ(std::string(fw.begin() + 24, fw.begin() + 32), "VN03    ");
	EXPECT_EQ(le(&fw[32], 8), 0u);
}

TEST_F(NvmeController, HealthLogFromNodeKeys)
{
	node("nvme0n1", R"({"protocol":"nvme","temperature":41,"nvme":{"critical_warning":4,"available_spare":9,
 "available_spare_threshold":10,"percentage_used":101,"data_units_read":1099511627777,"data_units_written":2,
 "host_read_commands":3,"host_write_commands":4,"controller_busy_time":5,"power_cycles":6,"power_on_hours":7,
 "unsafe_shutdowns":8,"media_errors":9,"num_err_log_entries":10,"warning_temp_time":11,"critical_comp_time":12}})");
	std::vector<uint8_t> h(512, 0xEE);
	ASSERT_EQ(logPage(0x02, h), 0);
	EXPECT_EQ(h[0], 4);
	EXPECT_EQ(le(&h[1], 2), 41u + 273);
	EXPECT_EQ(h[3], 9);
	EXPECT_EQ(h[4], 10);
	EXPECT_EQ(h[5], 101);
	EXPECT_EQ(le(&h[32], 8), 1099511627777u);
	EXPECT_EQ(le(&h[40], 8), 0u); // upper half of the 16-byte counter
	for (int i = 1; i < 10; ++i)
		EXPECT_EQ(le(&h[32 + 16 * i], 8), static_cast<uint64_t>(i + 1)) << i;
	EXPECT_EQ(le(&h[192], 4), 11u);
	EXPECT_EQ(le(&h[196], 4), 12u);

	// Error information: empty, 64 entries.
	std::vector<uint8_t> e(4096, 0xEE);
	ASSERT_EQ(logPage(0x01, e), 0);
	EXPECT_EQ(std::vector<uint8_t>(4096, 0), e);

	// Raw pages stand in for vendor logs; past their end, zeros.
	node("nvme0n1", R"({"protocol":"nvme","nvme":{"log_pages":{"0xc0":"0102030405"}}})");
	std::vector<uint8_t> v(8, 0xEE);
	ASSERT_EQ(logPage(0xC0, v), 0);
	EXPECT_EQ(v, (std::vector<uint8_t>{1, 2, 3, 4, 5, 0, 0, 0}));
	std::vector<uint8_t> tail(4, 0xEE);
	ASSERT_EQ(logPage(0xC0, tail, 4), 0);
	EXPECT_EQ(tail, (std::vector<uint8_t>{5, 0, 0, 0}));
}

TEST_F(NvmeController, MalformedCommandsGetControllerStatuses)
{
	std::vector<uint8_t> b512(512), b4k(4096), none;
	struct Case {
		const char *what;
		nvme_admin_cmd c;
		int status;
		const char *note;
	};
	auto with = [](nvme_admin_cmd c, auto edit) {
		edit(c);
		return c;
	};
	nvme_admin_cmd health = cmd(0x02, 0xFFFFFFFF, 0x007F0002, b512);
	nvme_admin_cmd ctrl = cmd(0x06, 0, 1, b4k);
	Case cases[] = {
		{"unknown opcode", cmd(0x09, 0, 0, none), 0x4001, "unsupported admin opcode"},
		{"identify 512 bytes", cmd(0x06, 0, 1, b512), 0x4002, "identify data length is not 4096"},
		{"identify controller nsid 1", with(ctrl, [](auto &c) { c.nsid = 1; }), 0x4002, "with a namespace id"},
		{"identify cns 2", with(ctrl, [](auto &c) { c.cdw10 = 2; }), 0x4002, "unsupported CNS"},
		{"identify controller id", with(ctrl, [](auto &c) { c.cdw10 = 0x10001; }), 0x4002, "controller id"},
		{"identify namespace 0", cmd(0x06, 0, 0, b4k), 0x400B, "no such namespace"},
		{"identify namespace 2", cmd(0x06, 2, 0, b4k), 0x400B, "no such namespace"},
		{"identify namespace all", cmd(0x06, 0xFFFFFFFF, 0, b4k), 0x400B, "no such namespace"},
		{"cdw2", with(ctrl, [](auto &c) { c.cdw2 = 1; }), 0x4002, "reserved dwords set"},
		{"log numd short", with(health, [](auto &c) { c.cdw10 = 0x007E0002; }), 0x4002, "NUMD and data length disagree"},
		{"log numdu", with(health, [](auto &c) { c.cdw11 = 1; }), 0x4002, "NUMD and data length disagree"},
		{"log odd length", with(health, [](auto &c) { c.data_len = 510; }), 0x4002, "not whole dwords"},
		{"log nsid 1", with(health, [](auto &c) { c.nsid = 1; }), 0x4002, "no per-namespace logs"},
		{"log lsp", with(health, [](auto &c) { c.cdw10 |= 0x100; }), 0x4002, "log specific field"},
		{"log lsi", with(health, [](auto &c) { c.cdw11 = 0x10000; }), 0x4002, "log specific identifier"},
		{"log uuid", with(health, [](auto &c) { c.cdw14 = 1; }), 0x4002, "reserved dwords set"},
		{"log offset unaligned", with(health, [](auto &c) { c.cdw12 = 6; }), 0x4002, "offset is not whole dwords"},
		{"log offset past end", with(health, [](auto &c) { c.cdw12 = 512; }), 0x4002, "past the end"},
		{"log offset upper", with(health, [](auto &c) { c.cdw13 = 1; }), 0x4002, "past the end"},
		{"log not kept", with(health, [](auto &c) { c.cdw10 = 0x007F0007; }), 0x4109, "log page 0x07 is not kept"},
		{"self-test data", cmd(0x14, 0, 1, b512), 0x4002, "device self-test with data"},
		{"self-test code 3", cmd(0x14, 0, 3, none), 0x4002, "unsupported self-test code"},
		{"self-test reserved", cmd(0x14, 0, 0x11, none), 0x4002, "reserved bits"},
		{"self-test nsid 7", cmd(0x14, 7, 1, none), 0x400B, "no such namespace"},
	};
	for (auto &k : cases) {
		std::fill(b512.begin(), b512.end(), 0xEE);
		EXPECT_EQ(run(k.c), k.status) << k.what;
		std::string l = last("nvme0n1");
		char st[32];
		std::snprintf(st, sizeof(st), "-> status 0x%04x: refused: ", k.status);
		EXPECT_NE(l.find(st), std::string::npos) << k.what << ": " << l;
		EXPECT_NE(l.find(k.note), std::string::npos) << k.what << ": " << l;
		EXPECT_EQ(b512[0], 0xEE) << k.what; // nothing transferred
	}
	EXPECT_EQ(root.read("/dev/nvme0n1").find("running_self_test"), std::string::npos);

	// Transfers beyond the controller's limit (MDTS 128 KiB), with the NUMD
	// upper half in cdw11 as the library splits it.
	std::vector<uint8_t> huge(256 * 1024 + 4);
	LogCapture log;
	EXPECT_EQ(vexo::nvme::getLogPage("/dev/nvme0n1", 0x02, huge.data(), huge.size()), -1);
	EXPECT_NE(last("nvme0n1").find("cdw10=0x00000002 cdw11=0x00000001"), std::string::npos) << last("nvme0n1");
	EXPECT_NE(last("nvme0n1").find("transfer above the controller's limit"), std::string::npos);
	EXPECT_TRUE(log.has(LOG_ERR, "failed with status 0x4002 (Invalid Field in Command)"));
}

TEST_F(NvmeController, KernelRefusals)
{
	std::vector<uint8_t> b(512);
	nvme_admin_cmd c = cmd(0x02, 0xFFFFFFFF, 0x007F0002, b);
	c.flags = 1;
	errno = 0;
	EXPECT_EQ(run(c), -1);
	EXPECT_EQ(errno, EINVAL);
	c.flags = 0;
	c.addr = 0;
	EXPECT_EQ(run(c), -1);
	EXPECT_EQ(errno, EFAULT);
	c = cmd(0x02, 0xFFFFFFFF, 0x007F0002, b);
	c.metadata_len = 4;
	EXPECT_EQ(run(c), -1);
	EXPECT_EQ(errno, EINVAL);
	EXPECT_EQ(vexo::dev::ioctl(open("nvme0n1"), NVME_IOCTL_ADMIN_CMD, nullptr), -1);
	EXPECT_EQ(errno, EFAULT);
	EXPECT_EQ(last("nvme0n1"), "NVME_ADMIN null -> errno 14: refused: null argument");

	// An ATA drive's node knows no NVMe ioctl.
	node("sda", kAtaNode);
	c = cmd(0x06, 0, 1, b);
	EXPECT_EQ(vexo::dev::ioctl(open("sda"), NVME_IOCTL_ADMIN_CMD, &c), -1);
	EXPECT_EQ(errno, ENOTTY);

	// Block size questions still work on an NVMe node.
	uint64_t size = 0;
	int lbs = 0;
	ASSERT_EQ(vexo::dev::ioctl(open("nvme0n1"), BLKGETSIZE64, &size), 0);
	ASSERT_EQ(vexo::dev::ioctl(open("nvme0n1"), BLKSSZGET, &lbs), 0);
	EXPECT_EQ(size, 400088457216u);
	EXPECT_EQ(lbs, 512);
}

TEST_F(NvmeController, InjectedFaults)
{
	node("nvme0n1", R"({"protocol":"nvme","faults":{"nvme_self_test":{"errno":"EBUSY","times":1},
 "nvme_admin":{"abort":true}}})");
	std::vector<uint8_t> none, b(4096);
	nvme_admin_cmd t = cmd(0x14, 0, 1, none);
	EXPECT_EQ(run(t), -1);
	EXPECT_EQ(errno, EBUSY);
	EXPECT_EQ(run(t), 0); // spent
	nvme_admin_cmd other = cmd(0x0A, 0, 4, none); // Get Features: no such command here
	EXPECT_EQ(run(other), 0x0006);
	EXPECT_EQ(identify(1, 0, b), 0); // faults name their command
}

} // namespace
