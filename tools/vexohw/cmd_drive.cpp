// What a drive says about itself through the library's command interfaces:
// its IDENTIFY page, its SMART data page and its power mode.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/ext.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"

using namespace vexo::cli;

namespace {

const char *interfaceName(DriveCommandInterface f)
{
	if (f == sat_command_interface)
		return "sat";
	if (f == sas_command_interface)
		return "scsi";
	if (f == marvell_command_interface)
		return "marvell";
	return "ata";
}

// A handle of the library's device layer: the command interfaces take it.
class Handle {
public:
	Handle() = default;
	Handle(const Handle &) = delete;
	Handle &operator=(const Handle &) = delete;
	~Handle()
	{
		if (h_ >= 0)
			VEXOExtDeviceClose(h_);
	}
	void reset(int h) { h_ = h; }
	int get() const { return h_; }

private:
	int h_ = -1;
};

// The drive named by the command's one argument, opened as the library's
// callers open it.
struct Target {
	std::string path;
	DriveCommandInterface iface = nullptr;
	Handle dev;
};

bool openTarget(Context &ctx, const char *verb, Target &t)
{
	if (ctx.args.size() != 1) {
		fail("usage: drive %s DISK", verb);
		return false;
	}
	char path[128];
	const std::string &arg = ctx.args[0];
	if (arg.empty() || arg.find("..") != std::string::npos ||
	    arg.find('/', arg.rfind("/dev/", 0) == 0 ? 5 : 0) != std::string::npos ||
	    VEXODiskDevPathGetByName(arg.c_str(), path, sizeof(path)) != 0) {
		fail("drive %s: '%s' is not a disk name", verb, arg.c_str());
		return false;
	}
	t.path = path;
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME) {
		fail("drive %s: %s is an NVMe drive, which has no ATA or SCSI command interface", verb, path);
		return false;
	}
	t.iface = VEXOSmartctlCommandInterfaceGet(path);
	t.dev.reset(VEXOIDiskRawOpen(path));
	if (t.dev.get() < 0) {
		fail("drive %s: cannot open %s (error 0x%04X)", verb, path, VLIBCErrGet());
		return false;
	}
	return true;
}

unsigned word(const unsigned char *p, int w) { return p[2 * w] | p[2 * w + 1] << 8; }

// An ATA string: two characters a word, the first in the high byte.
std::string ataString(const unsigned char *p, int first, int words)
{
	std::string s;
	for (int w = first; w < first + words; ++w) {
		s += static_cast<char>(p[2 * w + 1]);
		s += static_cast<char>(p[2 * w]);
	}
	size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
	return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

const char *checksumState(const unsigned char *page)
{
	if (page[510] != 0xA5)
		return "absent";
	return VEXOSmartChecksum(page) == 0 ? "valid" : "bad";
}

int driveIdentify(Context &ctx)
{
	Target t;
	if (!openTarget(ctx, "identify", t))
		return 1;
	if (t.iface == sas_command_interface)
		return fail("drive identify: %s is a SCSI drive: it has no IDENTIFY page", t.path.c_str());
	if (leaveAsleep(ctx, t.path))
		return 0;
	unsigned char p[512] = {};
	// As the library reads it: IDENTIFY, and only if that fails IDENTIFY PACKET.
	if (t.iface(t.dev.get(), CMD_IDENTIFY, p) != 0 && t.iface(t.dev.get(), CMD_PACKET_IDENTIFY, p) != 0)
		return fail("drive identify: %s does not answer IDENTIFY (error 0x%04X)", t.path.c_str(), VLIBCErrGet());

	unsigned long long sectors = 0;
	for (int i = 3; i >= 0; --i)
		sectors = sectors << 16 | word(p, 100 + i);
	unsigned sct = word(p, 206);
	Value r = Value::object();
	r.set("path", t.path);
	r.set("interface", interfaceName(t.iface));
	r.set("model", ataString(p, 27, 20));
	r.set("serial", ataString(p, 10, 10));
	r.set("firmware", ataString(p, 23, 4));
	r.set("packet_device", (word(p, 0) & 0x8000) != 0);
	r.set("lba48_sectors", sectors);
	r.set("rotation_rate_rpm", static_cast<int>(word(p, 217)));
	r.set("form_factor_word", static_cast<int>(word(p, 168)));
	r.set("sct_word", static_cast<int>(sct));
	r.set("sct_supported", (sct & 0x01) != 0);
	r.set("sct_error_recovery_control", (sct & 0x08) != 0);
	r.set("sct_feature_control", (sct & 0x10) != 0);
	r.set("sct_data_tables", (sct & 0x20) != 0);
	r.set("smart_supported", (word(p, 82) & 1) != 0);
	r.set("smart_enabled", (word(p, 85) & 1) != 0);
	r.set("checksum", checksumState(p));
	printRecord(ctx, r);
	return 0;
}

// Self-test execution status, high nibble of SMART data byte 363.
const char *selfTestText(unsigned code)
{
	static const char *const kTexts[16] = {
		"completed without error", "aborted by host", "interrupted by host reset", "fatal error",
		"unknown failure", "electrical failure", "servo failure", "read failure", "handling damage",
		"reserved", "reserved", "reserved", "reserved", "reserved", "reserved", "in progress"};
	return kTexts[code & 0xF];
}

int driveSmartPage(Context &ctx)
{
	Target t;
	if (!openTarget(ctx, "smart-page", t))
		return 1;
	if (t.iface == sas_command_interface)
		return fail("drive smart-page: %s is a SCSI drive: it has no SMART data page", t.path.c_str());
	if (leaveAsleep(ctx, t.path))
		return 0;
	unsigned char v[512] = {}, th[512] = {};
	if (SmartDataRead(t.path.c_str(), v, nullptr) != 0)
		return fail("drive smart-page: %s does not answer SMART READ DATA (error 0x%04X)", t.path.c_str(),
			    VLIBCErrGet());
	bool haveThresholds = t.iface(t.dev.get(), CMD_SMART_READ_THRESHOLDS, th) == 0 && VEXOSmartChecksum(th) == 0;

	Value attrs = Value::list();
	for (int slot = 0; slot < 30; ++slot) {
		const unsigned char *a = v + 2 + 12 * slot;
		if (a[0] == 0)
			continue;
		unsigned long long raw = 0;
		for (int i = 5; i >= 0; --i)
			raw = raw << 8 | a[5 + i];
		Value row = Value::object();
		row.set("slot", slot + 1);
		row.set("id", a[0]);
		char flags[8];
		std::snprintf(flags, sizeof(flags), "0x%04x", a[1] | a[2] << 8);
		row.set("flags", flags);
		row.set("value", a[3]);
		row.set("worst", a[4]);
		Value threshold;
		for (int s = 0; haveThresholds && s < 30; ++s)
			if (th[2 + 12 * s] == a[0]) {
				threshold = Value(static_cast<int>(th[3 + 12 * s]));
				break;
			}
		row.set("threshold", threshold);
		row.set("raw", raw);
		attrs.push(row);
	}
	unsigned exec = v[363];
	// 0xFF: the time is the 16-bit value at bytes 375-376.
	int extended = v[373] == 0xFF ? v[375] | v[376] << 8 : v[373];
	Value r = Value::object();
	r.set("path", t.path);
	r.set("interface", interfaceName(t.iface));
	r.set("revision", static_cast<int>(word(v, 0)));
	char hex[8];
	std::snprintf(hex, sizeof(hex), "0x%02x", v[362]);
	r.set("offline_collection_status", hex);
	r.set("offline_collection_seconds", static_cast<int>(v[364] | v[365] << 8));
	std::snprintf(hex, sizeof(hex), "0x%02x", exec);
	r.set("self_test_execution_status", hex);
	r.set("self_test_status", selfTestText(exec >> 4));
	r.set("self_test_remaining_percent", (exec >> 4) == 0xF ? Value(static_cast<int>((exec & 0xF) * 10)) : Value());
	r.set("short_test_minutes", v[372]);
	r.set("extended_test_minutes", extended);
	r.set("conveyance_test_minutes", v[374]);
	r.set("checksum", VEXOSmartChecksum(v) == 0 ? "valid" : "bad");
	if (ctx.json) {
		r.set("attributes", attrs);
		printRecord(ctx, r);
		return 0;
	}
	printRecord(ctx, r);
	std::printf("\n");
	printTable(ctx, attrs,
		   {{"slot", "SLOT"},
		    {"id", "ID"},
		    {"flags", "FLAGS"},
		    {"value", "VALUE"},
		    {"worst", "WORST"},
		    {"threshold", "THRESH"},
		    {"raw", "RAW"}});
	return 0;
}

int drivePower(Context &ctx)
{
	Target t;
	if (!openTarget(ctx, "power", t))
		return 1;
	Value r = Value::object();
	r.set("path", t.path);
	r.set("interface", interfaceName(t.iface));
	if (t.iface == sas_command_interface) {
		// SCSI drives have no power mode query that leaves them asleep;
		// TEST UNIT READY tells a stopped drive from a spinning one.
		unsigned char status = 0;
		if (t.iface(t.dev.get(), SCSI_TEST_UNIT_READY, &status) != 0)
			return fail("drive power: %s does not answer TEST UNIT READY", t.path.c_str());
		r.set("scsi_status", static_cast<int>(status));
		r.set("power_mode", status == 0 ? "active" : "stopped or not ready");
		printRecord(ctx, r);
		return 0;
	}
	unsigned char mode[512] = {0xFF};
	if (t.iface(t.dev.get(), CMD_CHECK_POWER_MODE, mode) != 0)
		return fail("drive power: %s does not answer CHECK POWER MODE (error 0x%04X)", t.path.c_str(),
			    VLIBCErrGet());
	char hex[8];
	std::snprintf(hex, sizeof(hex), "0x%02x", mode[0]);
	r.set("power_mode_code", hex);
	const char *text = mode[0] == 0x00 ? "standby"
			   : mode[0] >= 0x80 && mode[0] <= 0x83 ? "idle"
			   : mode[0] == 0xFF ? "active or idle"
					     : "unknown";
	r.set("power_mode", text);
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("drive identify", "DISK [--wake]", "decoded IDENTIFY page: identity, form factor, SCT, checksum",
		 driveIdentify, {});
VEXO_CLI_COMMAND("drive smart-page", "DISK [--wake]", "decoded SMART data page: attribute slots, test status bytes",
		 driveSmartPage, {});
VEXO_CLI_COMMAND("drive power", "DISK", "power mode (CHECK POWER MODE; never spins a drive up)", drivePower, {});

} // namespace
