/*
 * Drive command interfaces: the one operation every SMART, identity and
 * power call of the library is built on, plus the few calls made directly
 * on top of it. Pure C.
 *
 * An interface takes a descriptor opened by the caller (read-only,
 * non-blocking, on the disk path), a DriveCommand number and an in-out
 * buffer: 512 bytes for commands that return sector data, null allowed for
 * the others. It returns 0 or -1. Callers get the interface for a disk from
 * VEXOSmartctlCommandInterfaceGet and compare it with sas_command_interface
 * where ATA and SCSI semantics differ.
 */
#ifndef VEXOHW_SMARTCTL_H
#define VEXOHW_SMARTCTL_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* ATA-side commands are 0..9 and 28, SCSI-side commands 10..27. */
typedef enum DriveCommand {
	CMD_SMART_ENABLE = 0,
	CMD_SMART_READ_VALUES = 1,
	CMD_SMART_READ_THRESHOLDS = 2,
	CMD_SMART_READ_SELFTEST_LOG = 3,
	CMD_CHECK_POWER_MODE = 4,       /* one byte of power state into data[0] */
	CMD_IDLE = 5,                   /* idle timer from data[0]; Marvell path only */
	CMD_STANDBY_IMMEDIATE = 6,
	CMD_IDENTIFY = 7,
	CMD_PACKET_IDENTIFY = 8,
	CMD_DRIVE_FLUSH = 9,
	SCSI_INQUIRY = 10,              /* 36 bytes */
	SCSI_INQUIRY_SERIAL = 11,       /* VPD page 0x80, 252 bytes */
	SCSI_LOG_READ_ERRORS = 12,
	SCSI_LOG_WRITE_ERRORS = 13,
	SCSI_LOG_VERIFY_ERRORS = 14,
	SCSI_LOG_TEMPERATURE = 15,
	SCSI_LOG_BACKGROUND_SCAN = 16,
	SCSI_LOG_SELF_TEST = 17,
	SCSI_LOG_APPLICATION_CLIENT = 18,        /* 260 bytes */
	SCSI_LOG_SELECT_APPLICATION_CLIENT = 19, /* 260 bytes to the drive */
	SCSI_MODE_SELECT = 20,                   /* 24 bytes to the drive */
	SCSI_MOD_SENSE_CURRENT = 21,
	SCSI_MOD_SENSE_CHANGABLE = 22,
	SCSI_MODE_SENSE_CONTROL = 23,
	SCSI_REQUEST_SENSE = 24,
	SCSI_START_STOP = 25,           /* data[0] bit 0: start; null data: stop */
	SCSI_SYNC_CACHE = 26,
	SCSI_TEST_UNIT_READY = 27,      /* SCSI status byte into data[0] */
	CMD_SMART_READ_LOG_DIRECTORY = 28
} DriveCommand;

/* Protocol numbers of VEXODiskScsiProtocolGet (<vexohw/disk_probe.h>). */
#define VEXO_DISK_PROTOCOL_ATA  0
#define VEXO_DISK_PROTOCOL_SAT  1
#define VEXO_DISK_PROTOCOL_SCSI 2
#define VEXO_DISK_PROTOCOL_NVME 3

typedef int (*DriveCommandInterface)(int fd, unsigned int command, void *data);

/* The kernel's HDIO ioctls. Unknown numbers: -1, silently. Ioctl failure: 0x6C00. */
VEXO_API int ata_command_interface(int fd, unsigned int command, void *data);
/* ATA PASS-THROUGH(16) through SG_IO. Unknown numbers are logged. */
VEXO_API int sat_command_interface(int fd, unsigned int command, void *data);
/* Plain SCSI through SG_IO; numbers 10..27 only. */
VEXO_API int sas_command_interface(int fd, unsigned int command, void *data);
/* The Marvell controller's vendor wrapper through SCSI_IOCTL_SEND_COMMAND; numbers 0..9. */
VEXO_API int marvell_command_interface(int fd, unsigned int command, void *data);

/* The interface for a disk path ("/dev/sda" or "sda"); never null. */
VEXO_API DriveCommandInterface VEXOSmartctlCommandInterfaceGet(const char *path);

/* Turns SMART on (ATA), or asks a SCSI drive to report informational
   exceptions on request. 0 (also for NVMe disks), or -1. */
VEXO_API int SmartEnable(const char *path);
/* IDENTIFY (falling back to IDENTIFY PACKET) into 512 bytes. A page with the
   0xA5 signature at offset 510 must checksum to 0 (else 0x3300). SCSI disks:
   0xD900. 0, or -1. */
VEXO_API int SmartIdentifyRead(const char *path, unsigned char *identify);
/* CMD_SMART_READ_VALUES on fd; -1 for a SCSI disk. */
VEXO_API int SmartValuesRead(const char *path, int fd, void *values);
/* Opens path and reads the SMART values page (one retry) and, when
   thresholds is not null, the thresholds page (no retry, checksummed). */
VEXO_API int SmartDataRead(const char *path, void *values, void *thresholds);

/* READ LOG EXT through SG_IO: sectors x 512 bytes into buffer. 0, or -1. */
VEXO_API int SMARTReadLogExt(int fd, unsigned char features, unsigned int sectors,
			     unsigned char logAddress, unsigned int page, void *buffer);
/* SMART WRITE LOG of one sector (length <= 512, zero-padded). 0, or -1. */
VEXO_API int SMARTWriteLog(int fd, unsigned char features, unsigned char logAddress,
			   const void *data, int length);

/* Sum of the 512 bytes modulo 256; 0 for a well-formed page. */
VEXO_API unsigned char VEXOSmartChecksum(const unsigned char *page);
/* Swaps the two bytes of the 16-bit word at p in place. */
VEXO_API void VEXOSmartEndianSwap2(void *p);
VEXO_API void swap2(char *p);
/* 1 on a big-endian host, else 0. */
VEXO_API int isbigendian(void);

VEXO_END_DECLS

#endif
