/*
 * Remaining life of SSDs: the threshold answers the verdict weighs, the
 * figure of SAS drives, the life warning mail and its history, and which
 * disks can count bad sectors. Pure C.
 *
 * Settings (key=value, as in every vexoinfo.conf):
 *
 *   key                                  file                          default
 *   remain_life_thr_enable               /etc/vexoinfo.conf            absent: off
 *   remain_life_thr_value                /etc/vexoinfo.conf            none (percent)
 *   remain_life_show_thr_value           /etc.defaults/vexoinfo.conf   none (percent)
 *   remain_life_mail_notify_thr_value    /etc.defaults/vexoinfo.conf   none (percent)
 *   ssd_bundle_month_left_warn_enable    /etc/vexoinfo.conf, then the  "no"
 *                                        /etc.defaults one
 *   ssd_bundle_month_left_thr_value      the same                      1 (months)
 *
 * A life is a percentage 0..100, -1 when unknown. The threshold tests
 * return 1 when the life is at or below the value, 0 when not or when the
 * life is -1, and -1 when the value can't be read (logged). The "places
 * left alone" of the original interface are kept for callers and never
 * written; they may be null.
 */
#ifndef VEXOHW_REMAIN_LIFE_H
#define VEXOHW_REMAIN_LIFE_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* The user's threshold: 0 without reading the value unless
   remain_life_thr_enable is "yes". */
VEXO_API int VEXODiskIsBelowLifeThrWithValue(const char *path, int life, int *unused1, int *unused2);
VEXO_API int VEXODiskIsBelowLifeThr(const char *path, int *unused1, int *unused2);
/* The cached answer (below_remain_life_thr of the disk's value cache); -1
   when absent. */
VEXO_API int VEXODiskIsBelowLifeThrCache(const char *path);
VEXO_API int VEXODiskIsBelowLifeShowThrWithValue(int life);
VEXO_API int VEXODiskIsBelowLifeShowThr(const char *path);
VEXO_API int VEXODiskIsBelowLifeMailNotifyThrWithValue(int life);
VEXO_API int VEXODiskIsBelowLifeMailNotifyThr(const char *path);

/* Danger: life below 1, or below 2 on a disk not of the vendor's own. -1 is
   never danger. 1 or 0; -1 on a null path. */
VEXO_API int VEXODiskIsLifeDangerWithValue(const char *path, int life);
VEXO_API int VEXODiskIsLifeDanger(const char *path);

/* The disk's life and the attribute that gave it (attr may be null). 1 when
   below the user's threshold, 0 when not, -1 on failure. */
VEXO_API int VEXODiskRemainLifeInfoGet(const char *path, char *attr, int size, int *life, int *unused1,
				       int *unused2);

/* The life figure of the newest life warning logged for a serial in the
   disk event database. 1 found, 0 none (life -1), -1 on failure. */
VEXO_API int VEXODiskRemainLifeLastLogGet(const char *serial, int *life);

/* The life of a SAS disk (protocol 2) from its solid state media log page,
   through sg_logs. 0 with the life; -1 with the life at -1 for another
   protocol, 0x0A00 when the drive reports no figure or one above 100, 0x2A00
   when the tool could not be run. */
VEXO_API int VEXODiskSASRemainingLifeGet(const char *path, int *life);

/* Sends the life warning mail if it is due. 0 (sent or not due), -1 on a
   read or send failure: nothing is sent then. */
VEXO_API int VEXODiskRemainLifeCheck(const char *path);

/* Spools the life warning mail and logs its event. `bundle` 0: a percentage
   warning (life, event 41); otherwise an SSD bundle warning with `days`
   left (event 86). 0, or -1. */
VEXO_API int VEXORemainLifeWarnMailSend(const char *path, const char *serial, const char *life, int days,
					int bundle);

/*
 * Whether an NVMe disk's life needs checking: the last life checked for each
 * serial is kept in /var/lib/vexohw/nvme_remain_life (serial=life). 1 when
 * the life differs from the one kept, or none is kept (the new life is kept
 * then), 0 when unchanged, -1 on failure (0x0D00 an empty serial or one that
 * can't be a key, 0x0B00 not stored).
 */
VEXO_API int VEXONVMeRemainingLifeNeedCheck(const char *serial, int life);

/* The SSD bundle's month threshold for the life warning (0, or -1 when the
   setting is not a whole number from 1 to 120), and whether that warning is
   on (1 or 0). */
VEXO_API int VEXOSSDBundleMonthLeftThresGet(int *months);
VEXO_API int VEXOSSDBundleMonthLeftWarnEnableGet(void);

/*
 * Whether a disk can report bad sectors: an ATA disk whose attribute list
 * carries Reallocated_Sector_Ct, Current_Pending_Sector or
 * Offline_Uncorrectable. SAS and NVMe disks: no. 1 or 0; -1 on a null path.
 */
VEXO_API int VEXODiskIsSupportBadSector(const char *path);

VEXO_END_DECLS

#endif
