// The register and CDB layouts of the four drive command interfaces. Each
// interface reads its rows from here; nothing else spells these bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <scsi/sg.h>

namespace vexo::smart {

// HDIO_DRIVE_CMD header: command, sector number, features, sector count.
struct AtaRow {
	unsigned number;
	uint8_t command;
	uint8_t features;
	uint8_t sectorNumber;
	uint8_t sectorCount;
	unsigned bytesReturned;
};

inline constexpr AtaRow kAtaTable[] = {
	{0, 0xB0, 0xD8, 1, 0, 0},   // SMART ENABLE OPERATIONS
	{1, 0xB0, 0xD0, 0, 1, 512}, // SMART READ DATA
	{2, 0xB0, 0xD1, 1, 1, 512}, // SMART READ THRESHOLDS
	{3, 0xB0, 0xD5, 6, 1, 512}, // SMART READ LOG 6
	{4, 0xE5, 0, 0, 0, 1},      // CHECK POWER MODE (answer in the header)
	{6, 0xE0, 0, 0, 0, 0},      // STANDBY IMMEDIATE
	{7, 0xEC, 0, 0, 1, 512},    // IDENTIFY DEVICE
	{8, 0xA1, 0, 0, 1, 512},    // IDENTIFY PACKET DEVICE
	{28, 0xB0, 0xD5, 0, 1, 512}, // SMART READ LOG 0
};

// The Marvell path fills the same registers and adds IDLE.
inline constexpr AtaRow kMarvellIdle = {5, 0xE3, 0, 0, 0, 0};

// ATA PASS-THROUGH(16): [1] protocol, [2] flags, [4] features, [6] count,
// [8] LBA low, [10] LBA mid, [12] LBA high, [14] command.
struct SatRow {
	unsigned number;
	uint8_t protocol;
	uint8_t flags;
	uint8_t features;
	uint8_t sectorCount;
	uint8_t lbaLow;
	uint8_t lbaMid;
	uint8_t lbaHigh;
	uint8_t command;
	unsigned bytesIn; // 0: no transfer
};

inline constexpr SatRow kSatTable[] = {
	{0, 0x06, 0x0C, 0xD8, 0, 1, 0x4F, 0xC2, 0xB0, 0},
	{1, 0x08, 0x0E, 0xD0, 1, 0, 0x4F, 0xC2, 0xB0, 512},
	{2, 0x08, 0x0E, 0xD1, 1, 1, 0x4F, 0xC2, 0xB0, 512},
	{3, 0x08, 0x0E, 0xD5, 1, 6, 0x4F, 0xC2, 0xB0, 512},
	{4, 0x06, 0x2C, 0, 0, 0, 0, 0, 0xE5, 0},
	{6, 0x06, 0x0C, 0, 0, 0, 0, 0, 0xE0, 0},
	{7, 0x08, 0x0E, 0, 1, 0, 0, 0, 0xEC, 512},
	{8, 0x08, 0x0E, 0, 1, 0, 0, 0, 0xA1, 512},
	{28, 0x08, 0x0E, 0xD5, 1, 0, 0x4F, 0xC2, 0xB0, 512},
};

// The two raw log operations, also ATA PASS-THROUGH(16).
inline constexpr uint8_t kReadLogExtProtocol = 0x08, kReadLogExtFlags = 0x0E, kReadLogExtCommand = 0x2F;
inline constexpr SatRow kSmartWriteLog = {0, 0x0A, 0x06, 0, 1, 0, 0x4F, 0xC2, 0xB0, 0};

// Plain SCSI: a ten-byte CDB area for every command, six-byte ones included.
struct ScsiRow {
	unsigned number;
	uint8_t cdb[10];
	int direction; // SG_DXFER_*
	unsigned length;
};

inline constexpr ScsiRow kScsiTable[] = {
	{10, {0x12, 0, 0, 0, 0x24}, SG_DXFER_FROM_DEV, 36},
	{11, {0x12, 0x01, 0x80, 0, 0xFC}, SG_DXFER_FROM_DEV, 252},
	{12, {0x4D, 0, 0x43, 0, 0, 0, 0, 0, 0x40}, SG_DXFER_FROM_DEV, 512},
	{13, {0x4D, 0, 0x42, 0, 0, 0, 0, 0, 0x38}, SG_DXFER_FROM_DEV, 512},
	{14, {0x4D, 0, 0x45, 0, 0, 0, 0, 0, 0x40}, SG_DXFER_FROM_DEV, 512},
	{15, {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 0x10}, SG_DXFER_FROM_DEV, 512},
	{16, {0x4D, 0, 0x55, 0, 0, 0, 0, 0, 0x14}, SG_DXFER_FROM_DEV, 512},
	{17, {0x4D, 0, 0x50, 0, 0, 0, 0, 0x01, 0x94}, SG_DXFER_FROM_DEV, 512},
	{18, {0x4D, 0, 0x4F, 0, 0, 0, 0, 0x01, 0x04}, SG_DXFER_FROM_DEV, 260},
	{19, {0x4C, 0x01, 0x40, 0, 0, 0, 0, 0x01, 0x04}, SG_DXFER_TO_DEV, 260},
	{20, {0x15, 0x11, 0, 0, 0x18}, SG_DXFER_TO_DEV, 24},
	{21, {0x1A, 0, 0x1C, 0, 0x40}, SG_DXFER_FROM_DEV, 512},
	{22, {0x1A, 0, 0x5C, 0, 0x40}, SG_DXFER_FROM_DEV, 512},
	{23, {0x1A, 0, 0x0A, 0, 0x40}, SG_DXFER_FROM_DEV, 512},
	{24, {0x03, 0, 0, 0, 0x12}, SG_DXFER_FROM_DEV, 512},
	{25, {0x1B, 0x01}, SG_DXFER_NONE, 0}, // [4] is the start bit from data[0]
	{26, {0x35}, SG_DXFER_NONE, 0},
	{27, {}, SG_DXFER_NONE, 0},
};

inline constexpr unsigned kAtaBufferSize = 4 + 126976; // HDIO_DRIVE_CMD header + data area
inline constexpr unsigned kSenseLength = 32;
inline constexpr unsigned kSatTimeoutMs = 20000;
inline constexpr unsigned kScsiTimeoutMs = 30000;
inline constexpr unsigned kMarvellAreaSize = 540;
inline constexpr uint8_t kMarvellVendorCode = 0x0C;

template <typename Row, std::size_t N>
constexpr const Row *findRow(const Row (&table)[N], unsigned number)
{
	for (const Row &r : table)
		if (r.number == number)
			return &r;
	return nullptr;
}

} // namespace vexo::smart
