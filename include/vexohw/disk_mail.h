/*
 * The status mail of a disk: whether one is due when the disk's overview
 * status calls for attention, its tags, and the block of HTML rows that
 * tells the user why, in the appliance's mail language. Pure C.
 *
 * The mail is spooled through the notification service
 * (<vexoplatform/sysnotify.h>) under the mail key of the overview status
 * ("DiskStatusWarning", "DiskStatusCritical", "DiskStatusFailing",
 * "DiskStatusAccessError") or "DiskStatusUnc" for a mail about
 * uncorrectable reads. The texts come from
 * /usr/vexo/vexoman/webman/texts/<maillang>/strings ("enu" when maillang
 * of /etc/vexoinfo.conf can't be read).
 */
#ifndef VEXOHW_DISK_MAIL_H
#define VEXOHW_DISK_MAIL_H

#include <vexohw/vexo_export.h>

VEXO_BEGIN_DECLS

/* The size of the content buffer VEXODiskMailGenerate uses. */
#define VEXO_DISK_MAIL_CONTENT_SIZE 1024

/* Reads the drive afresh and sends the status mail if the overview status
   calls for one and the compatibility rules let health mails through. 0
   (sent, or none due), -1 on failure. */
VEXO_API int VEXODiskMailSend(const char *path);

/* Builds the tags and content of one mail under `key` and spools it, adding
   `event` to the disk event log. 0 (sent, or nothing to report), -1. */
VEXO_API int VEXODiskMailGenerate(const char *key, const char *path, int event);

/*
 * The HTML rows of a disk's mail into content (size bytes; a text that does
 * not fit fails with 0x0D00 and leaves content untouched). updateSmart
 * non-zero reads the drive's SMART afresh first. unc non-zero builds the
 * mail about uncorrectable reads: the status, the bad sectors and the
 * uncorrectable error row, always reported. Otherwise the rows are the
 * status, the advanced test (when the disk has one), analytics (when
 * supported), the counters, the remaining life, the SSD bundle's useful
 * time (for a bundle disk) and each error source that weighs. *attention
 * (may be null) takes the number of rows marked in colour.
 * Returns 1 with the content, 0 when nothing calls for a report (the SMART
 * verdict normal, the advanced test normal, untested or unknown, no
 * analytics finding at critical, no predicted failure, life above the
 * user's threshold, no bundle warning, no error weight), -1 on failure
 * (a text key missing from the strings file among them).
 */
VEXO_API int VEXODiskMailContentGet(const char *path, char *content, int size, int updateSmart, int unc,
				    int *attention);

/* The disk's kernel name as the mail names it ("sda" for "/dev/sda" and
   "/dev/sda3"). 0, or -1 (0x0D00 a null or bad argument or a buffer too
   small). */
VEXO_API int VEXODiskMailDiskNameGet(const char *path, char *name, int size);

/*
 * Sources the mail reads that producers outside this library publish in the
 * disk's value cache (/run/vexostorage/disks/<name>/):
 *
 *   key                    meaning                                    absent
 *   wdda_support           1 when drive analytics cover the disk      0
 *   ssd_bundle_days_left   days of use the SSD bundle gives the disk  -1 (no bundle)
 *
 * VEXODiskWddaIsSupport: 1 or 0; -1 on a bad path or a value that can't be
 * read. VEXOSSDBundleDaysLeftGet: 0 with *days; -1 likewise.
 * VEXOSSDBundleMonthLeftCheck: 1 when the bundle month warning is enabled
 * (VEXOSSDBundleMonthLeftWarnEnableGet) and the months left, counted as the
 * life warning mail counts them, are at or below the month threshold; 0
 * when not, or for a disk in no bundle; -1 on failure.
 */
VEXO_API int VEXODiskWddaIsSupport(const char *path);
VEXO_API int VEXOSSDBundleDaysLeftGet(const char *path, int *days);
VEXO_API int VEXOSSDBundleMonthLeftCheck(const char *path);

VEXO_END_DECLS

#endif
