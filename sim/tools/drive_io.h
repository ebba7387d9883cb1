// How the stand-in tools talk to a drive: the device node is opened through
// the device seam and the tools send the commands the real programs send
// (ATA PASS-THROUGH(16) over SG_IO, HDIO ioctls, the Marvell vendor
// wrapper, plain SCSI CDBs), so that the drive emulator answers them and
// records them in its command log like any other caller's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/device.h"

namespace vexosim::tools {

// The transports smartctl's -d names.
enum class Transport { Ata, Sat, Marvell, Scsi, Nvme };

struct Regs {
	uint8_t command = 0, features = 0, count = 0, lbaLow = 0, lbaMid = 0, lbaHigh = 0;
};

struct AtaAnswer {
	bool ok = false;        // the command completed without error
	bool aborted = false;   // the drive (or bridge) reported an error
	bool haveRegs = false;  // output registers came back
	int err = 0;            // errno when the request itself failed
	Regs out;               // output registers, when haveRegs
	std::vector<uint8_t> area; // Marvell: the record's register bytes as they came back
	std::string scsiError;     // SAT: the bridge's refusal ("aborted command", ...)
};

struct ScsiAnswer {
	bool ok = false;
	int err = 0;                 // errno when the ioctl failed
	uint8_t status = 0;          // SCSI status byte
	std::vector<uint8_t> sense;  // sense bytes, when any
	unsigned received = 0;       // data-in bytes actually transferred
	uint8_t senseKey() const;
	uint8_t asc() const;
	uint8_t ascq() const;
};

class Drive {
public:
	// Opens an appliance path (read-write, non-blocking, as the real tools
	// do). On failure the Drive is invalid and errno says why.
	static Drive open(const std::string &path, Transport t);
	bool valid() const { return dev_.valid(); }
	Transport transport() const { return t_; }

	// A non-data or PIO data-in ATA command; `data` receives count x 512
	// bytes. `wantRegs` asks for the output registers (CK_COND).
	AtaAnswer ata(const Regs &in, std::vector<uint8_t> *data, bool wantRegs = false);
	// HDIO_GET_IDENTITY, which smartctl tries first on the ata transport.
	bool hdioIdentity(std::vector<uint8_t> &page);

	// A SCSI command. dir: 0 none, 1 data-in (up to `len` bytes into data),
	// 2 data-out (`data` is sent).
	// `senseLength`: the sense buffer offered (smartctl and sg_raw 32 bytes,
	// the other sg tools 64).
	ScsiAnswer scsi(const std::vector<uint8_t> &cdb, int dir, std::vector<uint8_t> &data, unsigned len,
			unsigned timeoutMs = 60000, unsigned senseLength = 32);

	// An NVMe admin command; `data` receives `len` bytes. The controller's
	// status (0 when it completed well), or -1 with errno when the ioctl failed.
	int nvmeAdmin(uint8_t opcode, uint32_t nsid, uint32_t cdw10, std::vector<uint8_t> &data, unsigned len);
	// The namespace id of the node (NVME_IOCTL_ID); -1 with errno when it has none.
	int nvmeNamespace();

private:
	vexo::dev::Device dev_;
	Transport t_ = Transport::Sat;
};

// Convenience: IDENTIFY DEVICE (with the HDIO fallback of the ata transport).
bool identify(Drive &d, std::vector<uint8_t> &page, AtaAnswer *why = nullptr);

// Makes sure the drive emulator serves device nodes: a process started
// without a device backend gets the one built with this program.
void ensureBackend();

} // namespace vexosim::tools
