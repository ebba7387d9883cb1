// vexo_smart_test: starts, watches and stops SMART self-tests on a disk.
//
//   vexo_smart_test --type quick|extend --disk sel DEVICE   start a test
//   vexo_smart_test --type stop --disk sel DEVICE           abort the running test
//   vexo_smart_test --type watch --disk sel DEVICE          wait for the end, then record it
//
// Starting a test writes the disk's smart_testing value ("quick" or
// "extend") and <serial>_TIME_NEW / <serial>_STATUS_NEW in the test type's
// key-value file under its lockf lock; the library's SmartTestResultRecord
// moves them when the test is over.
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/hdreg.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <scsi/sg.h>
#include <string>
#include <unistd.h>
#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_test.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "appliance_tools.h"
#include "frame/clock.h"
#include "frame/device.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace vexosim::tools {
namespace {

enum class Op { Quick, Extend, Stop, Watch };

// SMART EXECUTE OFF-LINE IMMEDIATE subcommands, SEND DIAGNOSTIC self-test
// codes and NVMe Device Self-test codes of each operation.
struct Codes {
	uint8_t ata, scsi, nvme;
};
Codes codesOf(Op op)
{
	switch (op) {
	case Op::Quick: return {0x01, 1, 0x1};
	case Op::Extend: return {0x02, 2, 0x2};
	default: return {0x7F, 4, 0xF};
	}
}

int command(const std::string &path, Op op)
{
	Codes c = codesOf(op);
	int protocol = VEXODiskScsiProtocolGet(path.c_str());
	if (protocol == VEXO_DISK_PROTOCOL_NVME) {
		vexo::dev::Device d = vexo::dev::Device::open(path.c_str(), O_RDONLY);
		nvme_admin_cmd cmd{};
		cmd.opcode = 0x14;
		cmd.nsid = 0xFFFFFFFF;
		cmd.cdw10 = c.nvme;
		return d && d.ioctl(NVME_IOCTL_ADMIN_CMD, &cmd) == 0 ? 0 : -1;
	}
	vexo::dev::Device d = vexo::dev::Device::open(path.c_str(), O_RDONLY | O_NONBLOCK);
	if (!d)
		return -1;
	if (VEXOSmartctlCommandInterfaceGet(path.c_str()) == sas_command_interface) {
		uint8_t cdb[6] = {0x1D, static_cast<uint8_t>(c.scsi << 5), 0, 0, 0, 0}, sense[32] = {};
		sg_io_hdr_t h{};
		h.interface_id = 'S', h.cmd_len = sizeof(cdb), h.cmdp = cdb, h.mx_sb_len = sizeof(sense), h.sbp = sense;
		h.dxfer_direction = SG_DXFER_NONE, h.timeout = 30000;
		return d.ioctl(SG_IO, &h) == 0 && h.status == 0 ? 0 : -1;
	}
	uint8_t args[4 + 512] = {0xB0, c.ata, 0xD4, 0};
	return d.ioctl(HDIO_DRIVE_CMD, args);
}

// lockf on the type's lock file for the writes of its key-value file.
class Lock {
public:
	explicit Lock(const char *path)
	{
		vexo::sysroot::mkdir("/run/lock", 0755);
		fd_.reset(vexo::sysroot::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
		if (fd_)
			::lockf(fd_.get(), F_LOCK, 0);
	}

private:
	vexo::UniqueFd fd_;
};

int start(const std::string &path, Op op)
{
	const char *type = op == Op::Quick ? "quick" : "extend";
	if (SMARTIsSelftesting(path.c_str())) {
		std::fprintf(stderr, "vexo_smart_test: a test is already running on %s\n", path.c_str());
		return 1;
	}
	char fw[64] = {}, serial[64] = {};
	if (SmartFirmAndSerialRead(path.c_str(), fw, sizeof(fw), serial, sizeof(serial)) != 0 || command(path, op) != 0) {
		std::fprintf(stderr, "vexo_smart_test: can't start a %s test on %s\n", type, path.c_str());
		return 1;
	}
	const char *file = op == Op::Quick ? SMART_TEST_QUICK_LOG : SMART_TEST_EXTEND_LOG;
	{
		Lock lock(op == Op::Quick ? SMART_TEST_QUICK_LOCK : SMART_TEST_EXTEND_LOCK);
		std::string s(serial);
		VLIBCFileSetKeyValue(file, (s + "_TIME_NEW").c_str(),
				     std::to_string(static_cast<long long>(vexo::clock::wallSeconds())).c_str(), nullptr);
		VLIBCFileSetKeyValue(file, (s + "_STATUS_NEW").c_str(), "5", nullptr);
	}
	if (VEXODiskUpdateStrValueCacheFile(VEXODiskDevPrefixSkip(path.c_str()), "smart_testing", type) != 0) {
		std::fprintf(stderr, "vexo_smart_test: can't note the test of %s\n", path.c_str());
		return 1;
	}
	return 0;
}

int watch(const std::string &path)
{
	while (SMARTIsSelftesting(path.c_str()))
		::sleep(1);
	return SmartTestResultRecord(path.c_str()) == 0 ? 0 : 1;
}

} // namespace

int vexoSmartTest(int argc, char **argv)
{
	std::string type, disk;
	for (int i = 1; i + 1 < argc; ++i) {
		if (std::strcmp(argv[i], "--type") == 0)
			type = argv[++i];
		else if (std::strcmp(argv[i], "--disk") == 0 && i + 2 < argc && std::strcmp(argv[i + 1], "sel") == 0)
			disk = argv[i += 2];
	}
	if (disk.empty() || (type != "quick" && type != "extend" && type != "stop" && type != "watch")) {
		std::fprintf(stderr, "usage: vexo_smart_test --type quick|extend|stop|watch --disk sel DEVICE\n");
		return 2;
	}
	if (disk.rfind("/dev/", 0) != 0)
		disk = "/dev/" + disk;
	if (type == "stop") {
		if (!SMARTIsSelftesting(disk.c_str()) && VEXODiskScsiProtocolGet(disk.c_str()) != VEXO_DISK_PROTOCOL_NVME)
			return 0; // nothing runs: the caller records what the drive has
		return command(disk, Op::Stop) == 0 ? 0 : 1;
	}
	if (type == "watch")
		return watch(disk);
	return start(disk, type == "quick" ? Op::Quick : Op::Extend);
}

} // namespace vexosim::tools
