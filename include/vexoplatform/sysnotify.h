/*
 * libvexoplatform: the notification service. Pure C.
 *
 * A notification is a tag (the key of a message whose text lives outside
 * this library, "DiskCompatibilityIncompatible") and a hash of placeholders
 * ("%MODEL%" -> "ST4000VN008"). It is not sent from here: it is delivered
 * into a spool that the mail sender works through.
 *
 * The spool is the folder /var/spool/vexonotify under the appliance root,
 * made on first use (mode 0755). One notification is one file named
 *
 *     <seconds>.<nanoseconds>-<pid>-<seq>.ntf
 *
 * from the wall clock when it was spooled (nanoseconds zero-padded to 9
 * digits, so that the names sort in time order), the sender's pid and a
 * per-process counter. Its content is UTF-8 text, one "key=value" line each:
 *
 *     tag=DiskCompatibilityIncompatible
 *     time=1764000000
 *     %MODEL%=ST4000VN008
 *     %DISK_ID%=Drive 3
 *
 * "tag" and "time" (wall clock seconds) come first, then the hash's entries
 * in its order. In a value a backslash is written "\\", a newline "\n" and a
 * carriage return "\r"; keys may hold none of '=', newline, carriage return
 * or NUL. The file is written whole to ".<name>.tmp" in the spool, flushed,
 * and renamed to its name: a reader that lists "*.ntf" never sees half of
 * one. A consumer deletes a file once it has sent it.
 */
#ifndef VEXOPLATFORM_SYSNOTIFY_H
#define VEXOPLATFORM_SYSNOTIFY_H

#include <vexoplatform/vexocore.h>
#include <vexoplatform/vexoexport.h>

VEXO_BEGIN_DECLS

#define VEXO_NOTIFY_SPOOL_DIR "/var/spool/vexonotify"

/*
 * Spools one notification. hash may be null (no placeholders). 0 on
 * success; -1 with 0x0D00 for a null or empty tag or a tag or key that
 * cannot be written as a line, with 0x0B00 when the file cannot be written
 * (nothing is left behind).
 */
VEXOP_API int VEXOSysNotifySendNotifiction(const char *tag, PVLIBSZHASH hash);

VEXO_END_DECLS

#endif
