/*
 * Error codes, as VLIBCErrSetEx records them and VLIBCErrGet reads them:
 * one table for the platform library and libvexohw. Pure C.
 */
#ifndef VEXOPLATFORM_VEXOERR_H
#define VEXOPLATFORM_VEXOERR_H

#define VEXO_ERR_NOMEM          0x0100 /* malloc of a record failed */
#define VEXO_ERR_LIST_ALLOC     0x0200 /* string list or hash allocation failed */
#define VEXO_ERR_DB             0x0300 /* database connect or query failed */
#define VEXO_ERR_LOCK           0x0400 /* taking a lock failed */
#define VEXO_ERR_UNLOCK         0x0500 /* releasing a lock failed */
#define VEXO_ERR_GLOB           0x0600 /* glob over /sys failed */
#define VEXO_ERR_NOENT          0x0700 /* a file that should exist does not */
#define VEXO_ERR_FOPEN          0x0900 /* fopen failed */
#define VEXO_ERR_READ           0x0A00 /* reading or parsing a file failed */
#define VEXO_ERR_WRITE          0x0B00 /* writing a file failed */
#define VEXO_ERR_BAD_PARAM      0x0D00 /* null pointer, non-positive size, out of range */
#define VEXO_ERR_INTERNAL       0x0F00 /* an unexpected internal failure; the log line says what */
#define VEXO_ERR_NET            0x1100 /* network transfer failed */
#define VEXO_ERR_DB_KEY         0x2000 /* key missing from a database document */
#define VEXO_ERR_LSEEK          0x2600 /* lseek failed */
#define VEXO_ERR_NOT_FOUND      0x2A00 /* keyword or table entry not found */
#define VEXO_ERR_UNSUPPORTED    0x2D00 /* the unit does not support the operation */
#define VEXO_ERR_TIMEOUT        0x2E00 /* a timed program run hit its limit */
#define VEXO_ERR_VENDOR_DATA    0x4000 /* vendor data failed its validity check */
#define VEXO_ERR_UNKNOWN_DEVICE 0x6100 /* unknown disk container or device */
#define VEXO_ERR_DEVICE         0x6C00 /* opening a disk device or an ioctl on it failed */
#define VEXO_ERR_WRONG_IFACE    0xD900 /* command does not apply to this command interface */

#endif
