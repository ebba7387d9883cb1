// The emulated drive: its state (the node file's JSON object) and the
// answers of an ATA or SCSI drive built from it.
#pragma once

#include <cstdint>
#include <functional>
#include <json-c/json.h>
#include <string>
#include <vector>

namespace vexosim::drive {

// What a command did, as the transport reports it.
struct Outcome {
	enum Kind { Ok, Abort, CheckCondition, Errno, Status } kind = Ok;
	int err = 0;                 // Errno: the errno of the ioctl; Status: the NVMe status it returns
	uint8_t senseKey = 0, asc = 0, ascq = 0;
	uint8_t ataError = 0;
	uint8_t count = 0;           // ATA sector count register on return
	// LBA low/mid/high on return when the drive changes them (an SCT get
	// answers in count and LBA low; SMART RETURN STATUS reports a threshold
	// exceeded as 0xF4/0x2C); else as sent.
	int lbaLow = -1, lbaMid = -1, lbaHigh = -1;
	bool noSense = false;        // a bridge that drops the return descriptor
	std::string note;            // why it was refused, for the command log
};

// The ATA taskfile of a command.
struct Taskfile {
	uint8_t command = 0, features = 0, count = 0, lbaLow = 0, lbaMid = 0, lbaHigh = 0;
};

// DOWNLOAD MICROCODE limits: the largest segment (sectors) and image (bytes).
inline constexpr unsigned kMicrocodeMaxBlocks = 128;
inline constexpr size_t kMicrocodeMaxBytes = 16u << 20;
// Entries of the SCT temperature history.
inline constexpr unsigned kSctHistory = 128;

class Drive {
public:
	// Takes ownership of the parsed node object.
	explicit Drive(json_object *node);
	~Drive();
	Drive(const Drive &) = delete;
	Drive &operator=(const Drive &) = delete;

	std::string protocol() const;
	bool changed() const { return changed_; }
	// Whether the last command spun the drive up out of standby.
	bool woke() const { return woke_; }
	void markChanged() { changed_ = true; }
	json_object *node() const { return node_; }

	uint64_t sizeBytes() const;
	int logicalBlockSize() const;
	int physicalBlockSize() const;

	// The 512-byte IDENTIFY (or IDENTIFY PACKET) page.
	std::vector<uint8_t> identify(bool packetPage) const;
	bool isPacket() const;

	// Runs an ATA command. `out` receives data-in (count x 512 bytes);
	// `in` is the data-out sector.
	Outcome ata(const Taskfile &tf, std::vector<uint8_t> &out, const std::vector<uint8_t> &in);
	// Runs a SCSI command: `out` gets data-in, `in` is data-out.
	Outcome scsi(const uint8_t *cdb, unsigned cdbLen, std::vector<uint8_t> &out, const std::vector<uint8_t> &in);

	// The injected fault for an operation, consumed once when it has a
	// count. Null when none applies.
	json_object *fault(const char *op);

	// Moves a running self-test on to the time of this command (the clock
	// read when the Drive was made): its remaining percentage, or its end.
	void advanceSelfTest();

private:
	json_object *obj(const char *key) const;
	std::string str(const char *key, const char *fallback) const;
	int64_t num(const char *key, int64_t fallback) const;
	json_object *section(const char *key); // created on demand
	void setPower(int state);
	int power() const;
	bool smartEnabled() const;

	std::vector<uint8_t> smartValues() const;
	std::vector<uint8_t> smartThresholds() const;
	// The drive's attribute rows, in slot order (at most 30): the node's
	// own, or the healthy defaults for its kind.
	struct AttrRow {
		int id, flags, value, worst, threshold;
		int64_t raw;
	};
	void eachAttribute(const std::function<void(const AttrRow &)> &fn) const;
	bool thresholdExceeded() const;
	bool smartLog(unsigned addr, bool gpl, std::vector<uint8_t> &pages) const;
	bool scsiLogPage(unsigned page, std::vector<uint8_t> &out) const;
	std::vector<uint8_t> ieBytes(const char *key, const char *fallback) const;
	Outcome executeOffline(uint8_t subcommand);
	Outcome downloadMicrocode(const Taskfile &tf, const std::vector<uint8_t> &in);
	Outcome sctCommand(const std::vector<uint8_t> &key);
	int64_t sctFeature(unsigned code) const;
	int64_t selfTestMinutes(uint8_t subcommand) const;
	int64_t powerOnHours() const;
	void setSelfTestStatus(unsigned status);
	void endSelfTest(unsigned code, unsigned tenths);
	void logSelfTest(uint8_t subcommand, unsigned status);

	json_object *node_;
	bool changed_ = false;
	bool woke_ = false;
	int64_t now_; // seconds since the epoch
};

// Fills the last byte so that the 512 bytes sum to 0 (or to 1 when `bad`).
void sealPage(uint8_t *page, bool bad = false);
std::vector<uint8_t> fromHex(const char *hex);
std::string toHex(const uint8_t *p, std::size_t n);

// Firmware updates as the node's "firmware_update" object tells the drive
// to take them: {"seconds": N} the first piece of an image takes N seconds,
// {"hang": true} it never ends, {"fail": true} every piece is refused,
// {"reject": true} activation is refused. An image names what it is in
// "key=value" lines at its start ("model=...", "firmware=..."); activation
// refuses one for another model and makes its revision, when it names
// one, the running one.
// firmwarePiece: a reason to refuse the piece, or null (after any delay).
const char *firmwarePiece(json_object *node, bool first);
// Activates hex image: the refusal, or null with node "firmware" changed.
const char *firmwareActivate(json_object *node, const std::string &hexImage, const std::string &model);

} // namespace vexosim::drive
