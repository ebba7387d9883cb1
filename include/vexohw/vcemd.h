/*
 * The platform daemon connector: requests to "vcemd" over its datagram
 * socket, its ready marker, and one-word notifications. Pure C.
 */
#ifndef VEXOHW_VCEMD_H
#define VEXOHW_VCEMD_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

#define VEXO_VCEMD_DATA_MAX 512
#define VEXO_VCEMD_MESSAGE_SIZE 524

/* Paths on the appliance (composed under VEXO_SYSROOT by the library). */
#define VEXO_VCEMD_SERVER_SOCKET "/tmp/vcemd_connector.sock_server"
#define VEXO_VCEMD_CLIENT_SOCKET "/tmp/vcemd_connector.sock_client"
#define VEXO_VCEMD_LOCK_FILE "/run/vexosdk/lock/lock_vcemd_connector"
#define VEXO_VCEMD_READY_FILE "/tmp/.vcemd_ready"
#define VEXO_VCEMD_PID_FILE "/var/run/vcemd.pid"
#define VEXO_VCEMD_CONNECTOR_TOOL "/usr/vexo/bin/vexo_vcemd_connector"

/* Commands the library sends. */
#define VEXO_VCEMD_CMD_STATUS 3       /* needReply 1; reply: first word of data */
#define VEXO_VCEMD_CMD_TEMPERATURE 5  /* 32 bytes: "refresh" */
#define VEXO_VCEMD_CMD_LED_STATUS 29  /* 96 bytes: device, status, minutes */

/* Notification numbers (VLIBVcemdNotify). 15, 18 and 20 are signals. */
#define VEXO_VCEMD_NOTIFY_STANDBY_TIMER 43
#define VEXO_VCEMD_NOTIFY_FAN_MODE 46
#define VEXO_VCEMD_NOTIFY_FAN_MODE2 48
#define VEXO_VCEMD_NOTIFY_BUZZER 49
#define VEXO_VCEMD_NOTIFY_SATA_DEEP_SLEEP 51
#define VEXO_VCEMD_NOTIFY_EUNIT_DEEP_SLEEP 52
#define VEXO_VCEMD_NOTIFY_AUTO_POWEROFF 63

/* The daemon's state in VEXOSetVcemdStatus and VEXOVcemdStatusGet. */
#define VEXO_VCEMD_STOPPED 1
#define VEXO_VCEMD_READY 2

/*
 * One datagram, 524 bytes, in host byte order, the same record both ways.
 * A request carries needReply (one byte at offset 4); a reply carries
 * result (0 success, -1 failure) in the same place as a 32-bit value.
 */
typedef struct Message {
	int command;
#if defined(__GNUC__)
	__extension__
#endif
	union {
		unsigned char needReply;
		int result;
	};
	int dataLength;
	unsigned char data[VEXO_VCEMD_DATA_MAX];
} Message;

/*
 * Sends one request to the daemon and, when request->needReply is set,
 * waits up to 3 seconds for its reply (reply may be null only when
 * needReply is 0). One client at a time system-wide: a caller that finds
 * the lock held gives up after about 250 ms. 0, or -1 (only a bad argument
 * records an error code, 0x0D00; the log line tells the rest).
 */
VEXO_API int VEXOVcemdConnectorClient(const Message *request, Message *reply);
/* Builds a request: clears *msg, stores command, length bytes of data and
   needReply. length 1 to 512, else 0x0D00. 0, or -1. */
VEXO_API int VEXOVcemdCopy2MsgIn(int command, Message *msg, const void *data, int length, int needReply);
/* Builds a reply with result 0. A length above 512 stores -1 in result and
   fails; a null argument or a length below 1 records 0x0D00. 0, or -1. */
VEXO_API int VEXOVcemdCopy2MsgOut(int command, Message *msg, const void *data, int length);
/* Asks the daemon its state (type must be 1): *status 2 (VEXO_VCEMD_READY)
   when its answer is non-zero, else 1. 0, or -1. */
VEXO_API int VEXOVcemdStatusGet(int type, int *status);
/* 1 while /tmp/.vcemd_ready exists, else 0. */
VEXO_API int VEXOIsVcemdReady(void);
/* The daemon's own call: state 2 makes the ready marker, state 1 removes
   it. 0, or -1 (also for 2 when the marker is already there). */
VEXO_API int VEXOSetVcemdStatus(int state);
/* 15, 18 and 20 go to the daemon as signals (0 when it has no pid file);
   every other number runs /usr/vexo/bin/vexo_vcemd_connector -signal N.
   0, or -1. */
VEXO_API int VLIBVcemdNotify(int number);

VEXO_END_DECLS

#endif
